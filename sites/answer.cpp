#include "sites/answer.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>

#include "sites/url_text.h"

namespace sites::detail {

namespace {

// Stalls and trickles sleep in slices this long so that stop() cuts them off promptly.
constexpr auto kPauseSlice = std::chrono::milliseconds(20);
constexpr std::size_t kChunk = 64 * 1024;

// One body on its way out, shared by the content provider and its releaser.
struct Transfer {
    RequestRecord record;
    Body body;
    std::optional<Fault> fault;
    std::ifstream in;
    std::uint64_t sent = 0;
    std::uint64_t end = 0;  // offset where httplib stops asking
    bool begun = false;
    bool logged = false;
};

void finish(Recorder& recorder, Transfer& t, std::uint64_t bytes) {
    if (t.logged) return;
    t.logged = true;
    t.record.bytes = bytes;
    recorder.log(t.record);
}

bool provide(Recorder& recorder, Transfer& t, const Listener& listener, std::size_t offset, std::size_t length,
             httplib::DataSink& sink) {
    using Kind = Fault::Kind;
    const Fault* fault = t.fault ? &*t.fault : nullptr;
    if (!t.begun) {
        t.begun = true;
        t.end = offset + length;
        if (fault && fault->kind == Kind::Stall && !pause(listener, fault->seconds)) {
            finish(recorder, t, t.sent);
            return false;
        }
    }
    std::uint64_t chunk = std::min<std::uint64_t>(length, kChunk);
    if (fault && fault->kind == Kind::Slow) {
        chunk = std::min<std::uint64_t>(chunk, std::max<std::uint64_t>(1, fault->amount / 20));
        if (!pause(listener, static_cast<double>(chunk) / static_cast<double>(fault->amount))) {
            finish(recorder, t, t.sent);
            return false;
        }
    }
    bool cut = false;
    if (fault && fault->kind == Kind::Reset) {
        std::uint64_t left = fault->amount > t.sent ? fault->amount - t.sent : 0;
        if (left == 0) {
            finish(recorder, t, t.sent);
            return false;
        }
        if (chunk >= left) {
            chunk = left;
            cut = true;
        }
    }
    std::string data;
    if (t.body.file.empty()) {
        data = t.body.text.substr(offset, chunk);
    } else {
        data.resize(chunk);
        t.in.seekg(static_cast<std::streamoff>(offset));
        t.in.read(data.data(), static_cast<std::streamsize>(chunk));
        data.resize(static_cast<std::size_t>(std::max<std::streamsize>(0, t.in.gcount())));
    }
    if (data.size() != chunk) {  // the file shrank under us
        finish(recorder, t, t.sent);
        return false;
    }
    bool last = offset + chunk >= t.end;
    if (last) finish(recorder, t, t.sent + chunk);
    if (!sink.write(data.data(), data.size())) {
        finish(recorder, t, t.sent);
        return false;
    }
    t.sent += chunk;
    if (cut && !last) {
        finish(recorder, t, t.sent);
        return false;  // httplib drops the connection
    }
    return true;
}

}  // namespace

Body Body::fromText(std::string text, std::string contentType) {
    Body b;
    b.size = text.size();
    b.text = std::move(text);
    b.contentType = std::move(contentType);
    return b;
}

Body Body::fromFile(const std::filesystem::path& file) {
    Body b;
    b.file = file;
    b.size = std::filesystem::file_size(file);
    b.contentType = contentTypeFor(file);
    return b;
}

bool pause(const Listener& listener, double seconds) {
    auto until = std::chrono::steady_clock::now() +
                 std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                     std::chrono::duration<double>(seconds));
    while (true) {
        if (listener.stopping) return false;
        auto now = std::chrono::steady_clock::now();
        if (now >= until) return true;
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(kPauseSlice, until - now));
    }
}

void send(Recorder& recorder, Listener& listener, const httplib::Request& req, httplib::Response& res, RequestRecord record,
          int status, Body body, std::optional<Fault> fault) {
    // Left unset, httplib answers 200, or 206 for a range it cuts from the body itself.
    if (status != 200) res.status = status;
    record.status = status == 200 && !req.ranges.empty() ? 206 : status;
    bool head = req.method == "HEAD";

    if (head || body.size == 0) {
        // No body goes out: a stall holds back the whole answer instead.
        if (fault && fault->kind == Fault::Kind::Stall) pause(listener, fault->seconds);
        recorder.log(record);
        if (body.size > 0) {
            // httplib never calls the provider for HEAD; it only gives the length.
            res.set_content_provider(body.size, body.contentType,
                                     [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
        } else {
            res.set_content("", body.contentType);
        }
        return;
    }

    auto t = std::make_shared<Transfer>();
    t->record = std::move(record);
    t->fault = fault;
    if (!body.file.empty()) t->in.open(body.file, std::ios::binary);
    auto size = body.size;
    auto type = body.contentType;
    t->body = std::move(body);
    res.set_content_provider(
        size, type,
        [&recorder, t, &listener](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
            return provide(recorder, *t, listener, offset, length, sink);
        },
        [&recorder, t](bool) { finish(recorder, *t, t->sent); });
}

}  // namespace sites::detail
