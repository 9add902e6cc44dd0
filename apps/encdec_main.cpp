// kpmdwld-encdec encrypt|decrypt IN OUT
// Runs a whole file through the stand-in KEncDec cipher, as the management side
// encrypts "wpConfig.xml" for the agent; used to make demo and test machines.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "standins/cipher.h"

int main(int argc, char** argv) {
    if (argc != 4 || (std::strcmp(argv[1], "encrypt") != 0 && std::strcmp(argv[1], "decrypt") != 0)) {
        std::fprintf(stderr, "usage: kpmdwld-encdec encrypt|decrypt IN OUT\n");
        return 2;
    }
    std::ifstream in(argv[2], std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "kpmdwld-encdec: cannot read %s\n", argv[2]);
        return 1;
    }
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (std::strcmp(argv[1], "encrypt") == 0)
        standins::cipherEncrypt(text, text.size());
    else
        standins::cipherDecrypt(text, text.size());
    std::ofstream out(argv[3], std::ios::binary | std::ios::trunc);
    if (!(out << text) || !out.flush()) {
        std::fprintf(stderr, "kpmdwld-encdec: cannot write %s\n", argv[3]);
        return 1;
    }
    return 0;
}
