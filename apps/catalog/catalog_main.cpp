// kpmdwld-catalog: the publisher's tool for the signed product list
// (docs/third-party.md walks through it).
#include <openssl/evp.h>
#include <unzip.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "config/ini.h"
#include "list_signing.h"
#include "platform/host.h"
#include "platform/sim/sim_machine.h"
#include "tppatch/catalogue.h"
#include "tppatch/list_signature.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kUsage =
    "usage: kpmdwld-catalog COMMAND ...\n"
    "  keygen PRIVATE.pem PUBLIC.pem       a new RSA-3072 signing key pair; prints the key's id\n"
    "  installer FILE URL                  the <installer> element of an installer file\n"
    "  check PDList.xml                    reads the list as the agent does: every refused entry and why\n"
    "  publish --key PRIVATE.pem --serial N --issued YYYY-MM-DD --valid-until YYYY-MM-DD\n"
    "          [--auoptions AUOptions.xml] PDList.xml OUT.zip\n"
    "                                      sets serial, dates and AUOptions.xml's SHA-256, signs, packs pdlist.zip\n"
    "  sign --key PRIVATE.pem PDList.xml   prints the signature file of the list as it is (PDList.xml.sig)\n"
    "  verify [--keys KEYS.pem] [--today YYYY-MM-DD] [--last-serial N] pdlist.zip\n"
    "                                      the agent's check of an archive (KEYS.pem: PDListKeys.pem)\n";

[[noreturn]] void fail(const std::string& why) {
    std::cerr << "kpmdwld-catalog: " << why << "\n";
    std::exit(1);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail("cannot read " + path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void writeFile(const fs::path& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out || !out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()))) fail("cannot write " + path.string());
}

// "--name value" options before the positional arguments.
std::map<std::string, std::string> options(int& i, int argc, char** argv) {
    std::map<std::string, std::string> o;
    while (i < argc && std::string(argv[i]).rfind("--", 0) == 0) {
        if (i + 1 >= argc) fail(std::string(argv[i]) + " needs a value");
        o[argv[i] + 2] = argv[i + 1];
        i += 2;
    }
    return o;
}

std::string digestHex(const std::string& bytes, const EVP_MD* md) {
    unsigned char d[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    EVP_Digest(bytes.data(), bytes.size(), d, &n, md, nullptr);
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (unsigned int k = 0; k < n; ++k) out += {kHex[d[k] >> 4], kHex[d[k] & 15]};
    return out;
}

std::string xmlAttr(const std::string& s) {
    std::string out;
    for (char c : s) out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '"' ? "&quot;" : std::string(1, c);
    return out;
}

// A scratch simulated machine whose program folder is C:\Catalog: the agent's
// own readers run on it.
class Scratch {
public:
    explicit Scratch(const std::string& today) {
        const char* tmp = std::getenv("TMPDIR");
        root_ = fs::path(tmp && *tmp ? tmp : "/tmp") / ("kpmdwld-catalog-" + std::to_string(::getpid()));
        fs::remove_all(root_);
        fs::create_directories(root_ / "drives" / "C" / "Catalog");
        writeFile(root_ / "machine.ini",
                  "[Machine]\r\nExePath=C:\\Catalog\\kpmdwld-catalog.exe\r\nComputerName=publisher\r\nIs64BitOS=1\r\n");
        writeFile(root_ / "registry.reg", "Windows Registry Editor Version 5.00\r\n\r\n");
        platform::sim::OpenOptions o;
        o.frozenClock = true;
        if (!today.empty()) {
            const int32_t n = kpm::ListDateNumber(today);
            if (!n) fail("--today " + today + " is not a date yyyy-mm-dd");
            o.now = platform::DateTime{n / 10000, n / 100 % 100, n % 100, 12, 0, 0};
        }
        machine_ = platform::sim::SimMachine::open(root_, o);
        platform::setHost(machine_.get());
    }
    ~Scratch() {
        platform::setHost(nullptr);
        machine_.reset();
        std::error_code ec;
        fs::remove_all(root_, ec);
    }
    // Puts a file into C:\Catalog or a folder of it; returns its Windows path.
    std::string put(const std::string& folder, const std::string& name, const std::string& bytes) {
        const fs::path dir = root_ / "drives" / "C" / "Catalog" / folder;
        fs::create_directories(dir);
        writeFile(dir / name, bytes);
        return "C:\\Catalog\\" + (folder.empty() ? "" : folder + "\\") + name;
    }

private:
    fs::path root_;
    std::unique_ptr<platform::sim::SimMachine> machine_;
};

int keygen(int argc, char** argv) {
    if (argc != 4) fail("keygen PRIVATE.pem PUBLIC.pem");
    const auto [priv, pub] = catalog::GenerateKeyPair();
    const mode_t old = ::umask(077);  // the private key is its owner's alone
    writeFile(argv[2], priv);
    ::umask(old);
    writeFile(argv[3], pub);
    std::cout << "key " << catalog::KeyId(priv) << "\n";
    return 0;
}

int installer(int argc, char** argv) {
    if (argc != 4) fail("installer FILE URL");
    const std::string bytes = readFile(argv[2]);
    const std::string name = fs::path(argv[2]).filename().string();
    std::cout << "<installer name=\"" << xmlAttr(name) << "\" size=\"" << bytes.size() << "\"\n           md5=\""
              << digestHex(bytes, EVP_md5()) << "\"\n           sha256=\"" << digestHex(bytes, EVP_sha256())
              << "\"\n           url=\"" << xmlAttr(argv[3]) << "\"/>\n";
    return 0;
}

int check(int argc, char** argv) {
    if (argc != 3) fail("check PDList.xml");
    Scratch machine("");
    const std::string path = machine.put("", "PDList.xml", readFile(argv[2]));
    int status = 0;
    std::string why;
    if (auto m = kpm::ReadListMetadata(path, why))
        std::cout << "list: serial " << m->serial << ", issued " << m->issued << ", valid until " << m->validUntil << "\n";
    else
        std::cout << "list: " << why << " (publish sets them)\n";
    try {
        const kpm::Catalogue c = kpm::ReadCatalogue(path);
        for (const auto& r : c.refused) std::cout << "refused: " << r << "\n";
        std::cout << "vendors: " << c.vendors.size() << ", products: " << c.products.size()
                  << ", refused: " << c.refused.size() << "\n";
        status = c.refused.empty() ? 0 : 1;
    } catch (const platform::ComError& e) {
        std::cout << "unreadable: " << e.what() << "\n";
        status = 1;
    }
    return status;
}

int publish(int argc, char** argv) {
    int i = 2;
    auto o = options(i, argc, argv);
    if (argc - i != 2 || !o.count("key") || !o.count("serial") || !o.count("issued") || !o.count("valid-until"))
        fail("publish --key PRIVATE.pem --serial N --issued D --valid-until D [--auoptions F] PDList.xml OUT.zip");
    if (!kpm::ListDateNumber(o["issued"]) || !kpm::ListDateNumber(o["valid-until"])) fail("dates are yyyy-mm-dd");
    if (o["serial"].find_first_not_of("0123456789") != std::string::npos || o["serial"].size() > 18 ||
        o["serial"].find_first_not_of('0') == std::string::npos)
        fail("--serial is a number from 1, of at most 18 digits");
    const std::string key = readFile(o["key"]);
    // AUOptions.xml is signed through its hash in the list.
    const std::string auOptions = o.count("auoptions") ? readFile(o["auoptions"]) : "";
    const std::string list = catalog::WithListMetadata(readFile(argv[i]), o["serial"], o["issued"], o["valid-until"],
                                                       o.count("auoptions") ? catalog::Sha256Hex(auOptions) : "");
    std::vector<std::pair<std::string, std::string>> files{{"PDList.xml", list},
                                                           {"PDList.xml.sig", catalog::SignatureFile(list, key)}};
    if (o.count("auoptions")) files.emplace_back("AUOptions.xml", auOptions);
    catalog::WriteZip(argv[i + 1], files);
    std::cout << "signed serial " << o["serial"] << " with key " << catalog::KeyId(key) << ": " << argv[i + 1] << "\n";
    return 0;
}

int sign(int argc, char** argv) {
    int i = 2;
    auto o = options(i, argc, argv);
    if (argc - i != 1 || !o.count("key")) fail("sign --key PRIVATE.pem PDList.xml");
    std::cout << catalog::SignatureFile(readFile(argv[i]), readFile(o["key"]));
    return 0;
}

// The named entries of a zip archive.
std::map<std::string, std::string> unzipAll(const std::string& path) {
    std::map<std::string, std::string> out;
    unzFile zf = unzOpen64(path.c_str());
    if (!zf) fail(path + " is not a zip archive");
    for (int r = unzGoToFirstFile(zf); r == UNZ_OK; r = unzGoToNextFile(zf)) {
        char name[512];
        unz_file_info64 info{};
        if (unzGetCurrentFileInfo64(zf, &info, name, sizeof name, nullptr, 0, nullptr, 0) != UNZ_OK ||
            info.uncompressed_size > (256u << 20) || unzOpenCurrentFile(zf) != UNZ_OK)
            fail(path + " has an entry that cannot be read");
        std::string bytes(info.uncompressed_size, '\0');
        const int got = bytes.empty() ? 0 : unzReadCurrentFile(zf, bytes.data(), static_cast<unsigned>(bytes.size()));
        unzCloseCurrentFile(zf);
        if (got != static_cast<int>(bytes.size())) fail(path + ": " + name + " is damaged");
        out[name] = bytes;
    }
    unzClose(zf);
    return out;
}

int verify(int argc, char** argv) {
    int i = 2;
    auto o = options(i, argc, argv);
    if (argc - i != 1) fail("verify [--keys KEYS.pem] [--today D] [--last-serial N] pdlist.zip");
    const auto entries = unzipAll(argv[i]);
    Scratch machine(o["today"]);
    // The agent's layout: the archive's files in ZipComp, the keys and the record beside the program.
    for (const auto& [name, bytes] : entries)
        if (name.find_first_of("/\\") == std::string::npos) machine.put("ZipComp", name, bytes);
    if (o.count("keys")) machine.put("", "PDListKeys.pem", readFile(o["keys"]));
    if (o.count("last-serial")) machine.put("", "PDListRecord.ini", "[Accepted]\r\nSerial=" + o["last-serial"] + "\r\n");
    std::string accepted;
    const std::string why = kpm::CheckProductList("C:\\Catalog\\ZipComp", accepted);
    if (!why.empty()) {
        std::cout << "refused: " << why << "\n";
        return 1;
    }
    std::cout << "accepted: " << accepted << "\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << kUsage;
        return 2;
    }
    const std::string command = argv[1];
    try {
        if (command == "keygen") return keygen(argc, argv);
        if (command == "installer") return installer(argc, argv);
        if (command == "check") return check(argc, argv);
        if (command == "publish") return publish(argc, argv);
        if (command == "verify") return verify(argc, argv);
        if (command == "sign") return sign(argc, argv);
    } catch (const std::exception& e) {
        fail(e.what());
    }
    std::cerr << kUsage;
    return 2;
}
