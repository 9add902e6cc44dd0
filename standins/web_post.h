// Stand-in for the maker's posting component "kWbPost.WebPost".
//
//   PostXMLString(xml, flag, url, reserved1, reserved2, answer, errNumber, errDescription, errSource)
//
// Sends `xml` as the body of an HTTP POST to `url` with the header
// "Content-Type: text/xml". `flag`, `reserved1` and `reserved2` (the program
// passes False and two empty texts) are ignored. The last four arguments are
// outputs, written when passed by reference:
//   - answer: the body of a 2xx answer, as it came (empty when nothing was delivered);
//   - on success the error outputs are "0", "" and "";
//   - on failure the answer is "" and the error outputs are a number, the
//     reason in words (standins/transfer.h) and "kWbPost.WebPost":
//       12007  the host has no address (on a test machine: no [Network] line for it)
//       12029  no connection (refused, nothing listening)
//       12002  the site stopped sending for the transport's stall time
//       12006  not an http:// or https:// URL
//       12030  the answer was cut off, or any other transport failure
//       100-599  the HTTP status of an answer outside 2xx ("HTTP 500 Internal Server Error");
//                its body is not read
//       12005  an empty URL
//     The 12xxx numbers are WinINet's for the same conditions.
// The method returns True when an answer was delivered.
#pragma once

#include <memory>

#include "standins/dispatch_base.h"
#include "standins/transfer.h"

namespace standins {

inline constexpr const char* kWebPostProgId = "kWbPost.WebPost";

class WebPost : public DispatchBase {
public:
    // The host must outlive the object.
    explicit WebPost(StandinHost& host);
    explicit WebPost(std::shared_ptr<StandinHost> host);

private:
    std::shared_ptr<StandinHost> owned_;
    StandinHost& host_;
};

}  // namespace standins
