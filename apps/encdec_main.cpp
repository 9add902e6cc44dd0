// kpmdwld-encdec: makes and reads by hand what the management side encrypts or
// encodes for the agent (docs/configuration.md).
//
//   encrypt IN OUT       a whole file through the stand-in KEncDec cipher, as the
//                        management side encrypts "Configuration\wpConfig.xml";
//                        used to make demo, example and test machines
//   decrypt IN OUT       the reverse: the plain text of such a file
//   decrypt-post IN OUT  reverses the stand-in string-encryption class: IN is an
//                        encrypted post as the management site received it (the
//                        encrypted text inside a CDATA section, or the bare
//                        encrypted text); OUT gets the document the agent sent
//   encode-credential TEXT
//                        prints TEXT as the agent INI's [ProxySettings]
//                        ProxyUserName and ProxyPassword hold it: the decimal
//                        code of each character, joined by "H"
//   decode-credential CODES
//                        the reverse; says which piece the agent would refuse
//                        (it then logs a DecryptString error and takes the
//                        value as empty)
//
// IN "-" is standard input, OUT "-" standard output.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "standins/cipher.h"
#include "standins/string_cipher.h"

namespace {

const char kUsage[] =
    "usage: kpmdwld-encdec encrypt|decrypt|decrypt-post IN OUT   (IN or OUT - : standard input or output)\n"
    "       kpmdwld-encdec encode-credential TEXT    TEXT as ProxyUserName/ProxyPassword want it (97H108H...)\n"
    "       kpmdwld-encdec decode-credential CODES   the text the agent reads from such a value\n";

int usage() {
    std::fputs(kUsage, stderr);
    return 2;
}

// Each byte as its code in the computer's ANSI code page, joined by "H" (none
// after the last): what the agent's DecryptString turns back into the text.
std::string encodeCredential(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (!out.empty()) out += 'H';
        out += std::to_string(c);
    }
    return out;
}

// The agent splits at every "H" and reads each piece as a number; a piece that
// is not one (an empty piece after a trailing "H", a plain letter) makes it
// drop the whole value. Only plain decimal codes 0 to 255 are accepted here.
bool decodeCredential(const std::string& codes, std::string& text, std::string& problem) {
    text.clear();
    if (codes.empty()) return true;
    size_t start = 0;
    for (int piece = 1;; ++piece) {
        const size_t h = codes.find('H', start);
        const std::string part = codes.substr(start, h == std::string::npos ? std::string::npos : h - start);
        const size_t b = part.find_first_not_of(' '), e = part.find_last_not_of(' ');
        const std::string digits = b == std::string::npos ? "" : part.substr(b, e - b + 1);
        bool ok = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
        int code = 0;
        for (size_t i = 0; ok && i < digits.size(); ++i) {
            code = code * 10 + (digits[i] - '0');
            if (code > 255) ok = false;
        }
        if (!ok) {
            problem = "piece " + std::to_string(piece) + " (\"" + part + "\") is not a character code 0 to 255";
            if (part.empty() && h == std::string::npos) problem += ": the value ends in \"H\"";
            return false;
        }
        text += static_cast<char>(code);
        if (h == std::string::npos) return true;
        start = h + 1;
    }
}

bool readInput(const char* name, std::string& text) {
    if (std::strcmp(name, "-") == 0) {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        return true;
    }
    std::ifstream in(name, std::ios::binary);
    if (!in) return false;
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

int writeOutput(const char* name, const std::string& text) {
    if (std::strcmp(name, "-") == 0) {
        std::cout << text;
        return std::cout.flush() ? 0 : 1;
    }
    std::ofstream out(name, std::ios::binary | std::ios::trunc);
    if (!(out << text) || !out.flush()) {
        std::fprintf(stderr, "kpmdwld-encdec: cannot write %s\n", name);
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc >= 2 ? argv[1] : "";
    if (mode == "-h" || mode == "--help") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (mode == "encode-credential" && argc == 3) {
        const std::string text = argv[2];
        for (unsigned char c : text)
            if (c >= 0x80) {
                std::fputs("kpmdwld-encdec: note: TEXT holds non-ASCII bytes; the agent reads each code in the "
                           "computer's ANSI code page, so give TEXT in that code page (iconv -t CP1252)\n",
                           stderr);
                break;
            }
        std::printf("%s\n", encodeCredential(text).c_str());
        return 0;
    }
    if (mode == "decode-credential" && argc == 3) {
        std::string text, problem;
        if (!decodeCredential(argv[2], text, problem)) {
            std::fprintf(stderr,
                         "kpmdwld-encdec: %s; the agent logs a DecryptString error for this value and uses "
                         "an empty one\n",
                         problem.c_str());
            return 1;
        }
        text += '\n';
        std::fwrite(text.data(), 1, text.size(), stdout);
        return 0;
    }
    if ((mode != "encrypt" && mode != "decrypt" && mode != "decrypt-post") || argc != 4) return usage();

    std::string text;
    if (!readInput(argv[2], text)) {
        std::fprintf(stderr, "kpmdwld-encdec: cannot read %s\n", argv[2]);
        return 1;
    }
    if (mode == "encrypt") {
        standins::cipherEncrypt(text, text.size());
    } else if (mode == "decrypt") {
        standins::cipherDecrypt(text, text.size());
    } else {
        auto document = standins::decryptPostedDocument(text);
        if (!document) {
            std::fprintf(stderr, "kpmdwld-encdec: %s holds no encrypted post\n", argv[2]);
            return 1;
        }
        text = *document;
    }
    return writeOutput(argv[3], text);
}
