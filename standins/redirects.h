// The one rule every download stand-in follows redirects by, whatever moves
// the bytes: at most kMostRedirects hops, never from https to http (a body
// asked for over TLS never arrives in the clear). The body's hash, not its
// address, is what makes an installer safe; the final address is reported.
#pragma once

#include <functional>
#include <string>

#include "standins/transfer.h"

namespace standins {

constexpr int kMostRedirects = 5;

// 301, 302, 303, 307 and 308: the statuses a GET follows.
bool isFollowedRedirect(long status);

// `location` read against `base`: absolute, scheme-relative ("//h/p"),
// host-relative ("/p") or relative to base's folder.
std::string resolveLocation(const std::string& base, const std::string& location);

// One request of a transport: its result, and the Location header of a redirect.
using SingleGet = std::function<TransferResult(const std::string& url, std::string& location)>;

// GET `url` through `once`, following redirects by the rule. The result is
// the last answer's; its finalUrl names where the body came from when that
// is not `url`.
TransferResult followRedirects(const std::string& url, const SingleGet& once);

}  // namespace standins
