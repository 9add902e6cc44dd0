#include "standins/zip_component.h"

#include <vector>

namespace standins {

namespace {

// "a/b.txt" below "C:\X" -> "C:\X\a\b.txt".
std::string windowsJoin(const std::string& folder, const std::string& entryName) {
    std::string out = folder;
    if (!out.empty() && out.back() != '\\' && out.back() != '/') out += '\\';
    for (char c : entryName) out += c == '/' ? '\\' : c;
    while (!out.empty() && out.back() == '\\') out.pop_back();
    return out;
}

std::string parentOf(const std::string& windowsPath) {
    size_t slash = windowsPath.find_last_of('\\');
    return slash == std::string::npos ? std::string() : windowsPath.substr(0, slash);
}

}  // namespace

ZipComponent::ZipComponent(std::shared_ptr<StandinHost> host)
    : DispatchBase(kZipProgId), host_(std::move(host)) {
    method("OpenZip", 1, [this](Args a) { return Variant(openZip(a[0].value.toString())); });
    method("Unzip", 1, [this](Args a) { return Variant(unzip(a[0].value.toString())); });
    method("CloseZip", 0, [this](Args) {
        closeZip();
        return Variant();
    });
    property("LastErrorText", [this] { return Variant(lastError_); });
}

long ZipComponent::failWith(std::string text) {
    lastError_ = std::move(text);
    return -1;
}

long ZipComponent::openZip(const std::string& windowsPath) {
    closeZip();
    const std::string readable = host_->readablePath(windowsPath);
    if (readable.empty()) {
        lastError_ = "Cannot open " + windowsPath + ": file not found";
        return 0;
    }
    std::string error;
    reader_ = ZipReader::open(readable, error);
    if (!reader_) {
        lastError_ = "Cannot open " + windowsPath + ": " + error;
        return 0;
    }
    zipPath_ = windowsPath;
    lastError_.clear();
    return 1;
}

long ZipComponent::unzip(const std::string& windowsFolder) {
    if (!reader_) return failWith("No zip archive is open");
    const std::vector<ZipEntry>& entries = reader_->entries();
    // Every name first: a single unsafe one and the archive is refused whole.
    for (const ZipEntry& e : entries)
        if (!isSafeEntryName(e.name))
            return failWith("Unsafe entry name \"" + e.name + "\" in " + zipPath_ + ": nothing unpacked");

    if (!host_->makeFolders(windowsFolder))
        return failWith("Cannot create the folder " + windowsFolder);
    long files = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
        const ZipEntry& e = entries[i];
        const std::string destination = windowsJoin(windowsFolder, e.name);
        if (e.isFolder) {
            if (!host_->makeFolders(destination))
                return failWith("Cannot create the folder " + destination);
            continue;
        }
        const std::string parent = parentOf(destination);
        if (!parent.empty() && !host_->makeFolders(parent))
            return failWith("Cannot create the folder " + parent);

        std::unique_ptr<FileTarget> target = host_->newFileTarget();
        std::string error, writeError;
        if (!target->begin(destination, error))
            return failWith("Cannot write " + destination + ": " + error);
        const bool extracted = reader_->extract(
            i, [&](const char* data, size_t size) { return target->write(data, size, writeError); },
            error);
        if (!extracted) {
            target->abandon();
            if (!writeError.empty()) return failWith("Cannot write " + destination + ": " + writeError);
            return failWith("Cannot unpack \"" + e.name + "\" from " + zipPath_ + ": " + error);
        }
        if (!target->commit(error)) {
            target->abandon();
            return failWith("Cannot write " + destination + ": " + error);
        }
        ++files;
    }
    lastError_.clear();
    return files;
}

void ZipComponent::closeZip() {
    reader_.reset();
    zipPath_.clear();
}

}  // namespace standins
