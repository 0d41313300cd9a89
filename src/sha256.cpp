#include "sha256.h"

#include <openssl/sha.h>

namespace reporter {

std::string sha256(const char* data, unsigned int len) {
    unsigned char digest[SHA256_DIGEST_LENGTH] = {};
    SHA256(reinterpret_cast<const unsigned char*>(data), len, digest);

    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * sizeof digest);
    for (const unsigned char byte : digest) {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

}  // namespace reporter
