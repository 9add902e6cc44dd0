#include "platform/errors.h"
#include "platform/sim/sim_files.h"
#include "platform/sim/sim_objects.h"
#include "standins/dispatch_base.h"

namespace platform::sim {

namespace {

class FileSystemObject : public standins::DispatchBase {
public:
    explicit FileSystemObject(SimFiles& files) : DispatchBase("Scripting.FileSystemObject"), files_(files) {
        method("FileExists", 1, [this](Args a) { return Variant(files_.fileExists(a[0].value.toString())); });
        method("FolderExists", 1, [this](Args a) { return Variant(files_.folderExists(a[0].value.toString())); });
        method("DriveExists", 1, [this](Args a) {
            std::string d = a[0].value.toString();
            return Variant(!d.empty() && !files_.driveFolder(d[0]).empty() &&
                           (d.size() == 1 || d[1] == ':'));
        });
        method("CreateFolder", 1, [this](Args a) {
            files_.createFolder(a[0].value.toString());
            return Variant();
        });
        method("DeleteFile", 1, 2, [this](Args a) {
            std::string path = a[0].value.toString();
            const bool force = a.size() > 1 && a[1].value.toBool();
            try {
                if (force && files_.fileExists(path)) files_.clearReadOnly(path);
                files_.deleteFile(path);
            } catch (const ComError& e) {
                // The object reports a read-only file as permission denied.
                if (e.number() == err::PathFileAccessError) fail(err::PermissionDenied);
                throw;
            }
            return Variant();
        });
        method("DeleteFolder", 1, 2, [this](Args a) {
            files_.deleteFolder(a[0].value.toString());
            return Variant();
        });
        // CopyFile(source, destination[, overwrite = True]): one file (no wildcards here).
        method("CopyFile", 2, 3, [this](Args a) {
            const std::string from = a[0].value.toString(), to = a[1].value.toString();
            const bool overwrite = a.size() < 3 || a[2].value.toBool();
            if (!files_.fileExists(from)) fail(err::FileNotFound);
            if (files_.fileExists(to) && !overwrite) fail(err::FileAlreadyExists);
            files_.writeAll(to, files_.readAll(from));
            return Variant();
        });
        method("GetFileName", 1, [](Args a) { return Variant(lastName(a[0].value.toString())); });
        method("GetParentFolderName", 1, [](Args a) {
            std::string p = trimmed(a[0].value.toString());
            size_t cut = p.find_last_of("\\/");
            if (cut == std::string::npos) return Variant("");
            if (cut == 2 && p[1] == ':') return Variant(p.substr(0, 3));
            return Variant(p.substr(0, cut));
        });
        method("BuildPath", 2, [](Args a) {
            std::string p = a[0].value.toString(), n = a[1].value.toString();
            if (!p.empty() && p.back() != '\\' && p.back() != ':') p += '\\';
            return Variant(p + n);
        });
    }

private:
    static std::string trimmed(std::string p) {
        while (p.size() > 3 && (p.back() == '\\' || p.back() == '/')) p.pop_back();
        return p;
    }
    static std::string lastName(const std::string& path) {
        std::string p = trimmed(path);
        size_t cut = p.find_last_of("\\/:");
        return cut == std::string::npos ? p : p.substr(cut + 1);
    }

    SimFiles& files_;
};

}  // namespace

Object makeFileSystemObject(SimFiles& files) { return Object(std::make_shared<FileSystemObject>(files)); }

}  // namespace platform::sim
