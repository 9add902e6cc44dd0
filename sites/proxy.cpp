// The proxy: forwards absolute-form requests to the project's own sites
// (by the host map) or to loopback, asking for Basic credentials when set.
#include "sites/server_impl.h"
#include "sites/url_text.h"

#include "standins/base64.h"

namespace sites {

using detail::Body;
using detail::Listener;
using detail::hopByHop;
using detail::lower;
using detail::parseAbsolute;
using detail::splitTarget;
using detail::startsWithNoCase;

namespace {
constexpr const char* kLoopback = "127.0.0.1";
}  // namespace

bool SitesServer::Impl::authorized(const httplib::Request& req) const {
    const auto& credentials = config.proxy->credentials;
    if (credentials.empty()) return true;
    auto header = req.get_header_value("Proxy-Authorization");
    if (!startsWithNoCase(header, "Basic ")) return false;
    auto token = header.substr(6);
    token.erase(0, token.find_first_not_of(' '));
    token.erase(token.find_last_not_of(' ') + 1);
    auto decoded = standins::fromBase64(token);
    return decoded && *decoded == credentials;
}

void SitesServer::Impl::handleProxy(Listener& listener, const httplib::Request& req, httplib::Response& res) {
    auto [target, query] = splitTarget(req.target);
    auto record = recorder.arrive("proxy", req.method, req.get_header_value("Host"), target, query);
    if (!authorized(req)) {
        res.set_header("Proxy-Authenticate", "Basic realm=\"kpm-sites\"");
        send(recorder, listener, req, res, record, 407, Body::fromText("kpm-sites proxy: authentication required\n"),
             std::nullopt);
        return;
    }
    auto url = parseAbsolute(target);
    if (!url) {
        send(recorder, listener, req, res, record, 400,
             Body::fromText("kpm-sites proxy: expected an absolute http:// request target\n"), std::nullopt);
        return;
    }
    int port = url->port;
    bool ownSite = false;
    for (const auto& [host, site] : config.proxy->siteHosts)
        if (lower(host) == lower(url->host)) {
            if (Site* own = findSite(site)) port = own->config.port, ownSite = true;
        }
    if (!ownSite && url->host != kLoopback && lower(url->host) != "localhost") {
        send(recorder, listener, req, res, record, 502,
             Body::fromText("kpm-sites proxy: reaches loopback only (127.0.0.1, localhost), not " + url->host +
                            "\n"),
             std::nullopt);
        return;
    }

    httplib::Client client(kLoopback, port);
    client.set_url_encode(false);  // forward the target exactly as the client wrote it
    client.set_decompress(false);
    client.set_connection_timeout(5);
    client.set_read_timeout(600);  // a site may be told to stall for long
    httplib::Request up;
    up.method = req.method;
    up.path = url->path + (query.empty() ? "" : "?" + query);
    for (const auto& [name, value] : req.headers)
        if (!hopByHop(name)) up.headers.emplace(name, value);
    up.body = req.body;
    auto result = client.send(up);
    if (!result) {
        send(recorder, listener, req, res, record, 502,
             Body::fromText("kpm-sites proxy: no answer from " + url->host + ":" + std::to_string(url->port) +
                            " (" + httplib::to_string(result.error()) + ")\n"),
             std::nullopt);
        return;
    }
    std::string type = "application/octet-stream";
    for (const auto& [name, value] : result->headers) {
        if (lower(name) == "content-type") type = value;
        else if (!hopByHop(name)) res.headers.emplace(name, value);
    }
    send(recorder, listener, req, res, record, result->status, Body::fromText(result->body, type), std::nullopt);
}

}  // namespace sites
