// kpmdwld-encdec encrypt|decrypt|decrypt-post IN OUT
//   encrypt, decrypt  run a whole file through the stand-in KEncDec cipher, as
//                     the management side encrypts "wpConfig.xml" for the agent;
//                     used to make demo and test machines
//   decrypt-post      reverses the stand-in string-encryption class: IN is an
//                     encrypted post as the management site received it (the
//                     encrypted text inside a CDATA section, or the bare
//                     encrypted text); OUT gets the document the agent sent
// OUT "-" is standard output.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "standins/cipher.h"
#include "standins/string_cipher.h"

int main(int argc, char** argv) {
    const std::string mode = argc == 4 ? argv[1] : "";
    if (mode != "encrypt" && mode != "decrypt" && mode != "decrypt-post") {
        std::fprintf(stderr, "usage: kpmdwld-encdec encrypt|decrypt|decrypt-post IN OUT   (OUT - : standard output)\n");
        return 2;
    }
    std::ifstream in(argv[2], std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "kpmdwld-encdec: cannot read %s\n", argv[2]);
        return 1;
    }
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
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
    if (std::strcmp(argv[3], "-") == 0) {
        std::cout << text;
        return std::cout.flush() ? 0 : 1;
    }
    std::ofstream out(argv[3], std::ios::binary | std::ios::trunc);
    if (!(out << text) || !out.flush()) {
        std::fprintf(stderr, "kpmdwld-encdec: cannot write %s\n", argv[3]);
        return 1;
    }
    return 0;
}
