#include "report_content.h"

#include <algorithm>
#include <array>

#include <openssl/evp.h>
#include <openssl/sha.h>
#include <zlib.h>

#include "request_form.h"

namespace collector {
namespace {

/// How many bytes one byte of a zlib stream can stand for.
constexpr std::size_t HIGHEST_RATIO = 1032;

void require(bool condition, const char* reason) {
    if (!condition) {
        throw malformed_request(reason);
    }
}

/// Takes off the zero bytes that EVP_DecodeBlock makes of the padding. Empty text decodes to
/// nothing.
std::string decode_base64(const std::string& text) {
    constexpr const char* DIGITS =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t end = std::min(text.find_first_not_of(DIGITS), text.size());
    const std::string filler = text.substr(end);
    require(text.size() % 4 == 0 && (filler.empty() || filler == "=" || filler == "=="),
            "the content is not Base64");
    std::string decoded(text.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(decoded.data()),
                                       reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()));
    require(length == static_cast<int>(decoded.size()), "the content is not Base64");
    decoded.resize(decoded.size() - filler.size());
    return decoded;
}

/// Gives zlib one byte more than the declared size, so that longer content shows.
std::string inflate_declared(const std::string& deflated, std::size_t size) {
    std::string content(size + 1, '\0');
    uLongf written = content.size();
    uLong taken = deflated.size();
    const int result = uncompress2(reinterpret_cast<Bytef*>(content.data()), &written,
                                   reinterpret_cast<const Bytef*>(deflated.data()), &taken);
    require(result != Z_BUF_ERROR && (result != Z_OK || written == size),
            "the content is not of the size that \"size\" says");
    require(result == Z_OK && taken == deflated.size(), "the content is not a zlib stream");
    content.resize(size);
    return content;
}

}  // namespace

std::string decoded_content(const std::string& base64, std::size_t size) {
    const std::string deflated = decode_base64(base64);
    require(size <= HIGHEST_RATIO * deflated.size(), "\"size\" is more than the content can be");
    return inflate_declared(deflated, size);
}

std::string sha256_of(const std::string& bytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
    std::string text;
    for (const unsigned byte : digest) {
        text += DIGITS[byte >> 4U];
        text += DIGITS[byte & 15U];
    }
    return text;
}

}  // namespace collector
