// What a site answers: the files of its folder, and its posts kept.
#include "sites/server_impl.h"
#include "sites/url_text.h"

#include "standins/string_cipher.h"

#include <sstream>
#include <system_error>

namespace sites {

namespace fs = std::filesystem;
using detail::Answer;
using detail::Body;
using detail::Listener;
using detail::splitTarget;

std::optional<fs::path> fileForUrlPath(const fs::path& folder, std::string_view urlPath) {
    if (urlPath.size() < 2 || urlPath.front() != '/') return std::nullopt;
    if (urlPath.find('\\') != std::string_view::npos || urlPath.find('\0') != std::string_view::npos)
        return std::nullopt;
    fs::path relative;
    std::string_view rest = urlPath.substr(1);
    while (true) {
        auto slash = rest.find('/');
        auto segment = rest.substr(0, slash);
        // Empty segments would make the rest absolute ("//etc/passwd").
        if (segment.empty() || segment == "." || segment == "..") return std::nullopt;
        relative /= std::string(segment);
        if (slash == std::string_view::npos) break;
        rest = rest.substr(slash + 1);
    }
    return folder / relative;
}

namespace {

std::optional<fs::path> servedFile(const fs::path& root, const std::string& decodedPath) {
    auto file = fileForUrlPath(root, decodedPath);
    std::error_code ec;
    if (!file || !fs::is_regular_file(*file, ec)) return std::nullopt;
    // A link inside the folder must not lead out of it either.
    auto real = fs::canonical(*file, ec);
    if (ec || !detail::isInside(root, real)) return std::nullopt;
    return real;
}

// "ec=256" among the query's parameters: the management site's mark of an encrypted post.
bool encryptedQuery(const std::string& query) {
    std::istringstream in(query);
    std::string parameter;
    while (std::getline(in, parameter, '&'))
        if (parameter == "ec=256") return true;
    return false;
}

}  // namespace

// Everything a site does with a POST: keep the body (and the document it
// carries), choose the answer: the file the path names, else the file of
// the document kind ("<kind>.txt"), else an empty answer.
Answer SitesServer::Impl::answerPost(const Site& site, const httplib::Request& req, const std::string& path,
                                     const std::string& query) {
    PostRecord post{site.config.name, path, query, req.body, rootElementOf(req.body), req.body};
    if (encryptedQuery(query)) {
        post.document = standins::decryptPostedDocument(req.body).value_or("");
        if (post.kind.empty()) post.kind = rootElementOf(post.document);
    }
    recorder.keep(post);
    if (auto file = servedFile(site.root, req.path)) return {200, Body::fromFile(*file)};
    if (!post.kind.empty())
        if (auto file = servedFile(site.root, "/" + post.kind + ".txt")) return {200, Body::fromFile(*file)};
    return {200, Body::fromText("", "text/plain")};
}

void SitesServer::Impl::handleSite(const Site& site, Listener& listener, const httplib::Request& req, httplib::Response& res) {
    if (faults.reload()) poke();
    auto [path, query] = splitTarget(req.target);
    auto record = recorder.arrive(site.config.name, req.method, req.get_header_value("Host"), path, query);

    std::optional<Answer> post;
    if (req.method == "POST") post = answerPost(site, req, path, query);

    auto fault = faults.take(site.config.name, req.path, path);
    if (fault && fault->kind == Fault::Kind::Status) {
        send(recorder, listener, req, res, record, fault->status,
             Body::fromText("kpm-sites: status " + std::to_string(fault->status) + " for " + path + "\n"),
             std::nullopt);
        return;
    }
    if (fault && fault->kind == Fault::Kind::Redirect) {
        res.set_header("Location", fault->location);
        send(recorder, listener, req, res, record, fault->status, Body::fromText("kpm-sites: moved to " + fault->location + "\n"),
             std::nullopt);
        return;
    }
    if (fault && fault->kind == Fault::Kind::Empty) {
        send(recorder, listener, req, res, record, 200, Body::fromText(""), std::nullopt);
        return;
    }
    if (post) {
        send(recorder, listener, req, res, record, post->status, std::move(post->body), fault);
        return;
    }
    if (req.method != "GET" && req.method != "HEAD") {
        send(recorder, listener, req, res, record, 405, Body::fromText("kpm-sites: method not allowed\n"), std::nullopt);
        return;
    }
    auto file = servedFile(site.root, req.path);
    if (!file) {
        send(recorder, listener, req, res, record, 404, Body::fromText("kpm-sites: not found: " + path + "\n"),
             std::nullopt);
        return;
    }
    send(recorder, listener, req, res, record, 200, Body::fromFile(*file), fault);
}

}  // namespace sites
