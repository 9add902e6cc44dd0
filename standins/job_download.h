// Stand-in for the maker's download object "kDwnJob.JobDownload".
//
//   JobDownload(url, reserved1, reserved2, destination, status, reason, failedUrl)
//
// Seven strings, all by reference; returns True when the file at `url` was
// written to `destination`. The two spare strings name a proxy ("host:port")
// and its credentials ("user:password"): the Microsoft channels pass them
// empty (a direct connection), the third-party installer download passes the
// agent's proxy. On failure the last three are filled: the HTTP
// status ("0" when no answer came), the reason in words, and the URL that
// failed; on success the first two are emptied and the last names where
// redirects led (empty when none was followed).
//
// Property MaxBytes (0: none): a body that passes it is stopped at once and
// nothing is kept ("more than N bytes: stopped"). The third-party download
// sets it to the installer's size.
#pragma once

#include <cstdint>
#include <memory>

#include "standins/dispatch_base.h"
#include "standins/transfer.h"

namespace standins {

inline constexpr const char* kJobDownloadProgId = "kDwnJob.JobDownload";

class JobDownload : public DispatchBase {
public:
    explicit JobDownload(std::shared_ptr<StandinHost> host);

private:
    std::shared_ptr<StandinHost> host_;
    uint64_t maxBytes_ = 0;
};

}  // namespace standins
