// Answers on their way out. Bodies always go out through a content provider:
// that is where faults cut, stall and trickle them, where the bytes actually
// sent are counted, and it keeps httplib from compressing answers behind our back.
#pragma once

#include "sites/recorder.h"
#include "sites/sites_server.h"

#include <httplib.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace sites::detail {

// One listening server with its thread.
struct Listener {
    std::unique_ptr<httplib::Server> server;  // an httplib::SSLServer for an HTTPS site
    std::thread thread;
    std::atomic<bool> stopping{false};
    std::atomic<bool> ended{false};
};

// What an answer's body is: text in memory, or a file's content.
struct Body {
    std::string text;
    std::filesystem::path file;
    std::uint64_t size = 0;
    std::string contentType;

    static Body fromText(std::string text, std::string contentType = "text/plain");
    static Body fromFile(const std::filesystem::path& file);
};

struct Answer {
    int status = 200;
    Body body;
};

// Waits `seconds` in short slices; false when the listener stops meanwhile.
bool pause(const Listener& listener, double seconds);

// Answers with `status` and `body`, shaped by a reset, stall or slow fault.
// The request's log line is written before the client can have seen the
// end of the answer, so whoever has the answer also finds its line.
void send(Recorder& recorder, Listener& listener, const httplib::Request& req, httplib::Response& res,
          RequestRecord record, int status, Body body, std::optional<Fault> fault);

}  // namespace sites::detail
