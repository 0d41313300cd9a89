#include "stored_text.h"

#include <cstddef>

namespace collector {
namespace {

constexpr const char* REPLACEMENT = "\xEF\xBF\xBD";

/// Bytes of the character that begins at `at`; 0 when there is none. Neither longer forms than
/// needed nor surrogates nor what is beyond U+10FFFF are characters.
std::size_t character_size(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t offset) -> unsigned {
        return at + offset < text.size() ? static_cast<unsigned char>(text[at + offset]) : 0U;
    };
    const unsigned first = byte(0);
    if (first < 0x80) {
        return first == 0 ? 0 : 1;
    }
    const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    unsigned code = first & (0x7FU >> size);
    for (std::size_t offset = 1; offset < size; ++offset) {
        if ((byte(offset) & 0xC0U) != 0x80U) {
            return 0;
        }
        code = code << 6U | (byte(offset) & 0x3FU);
    }
    const unsigned least = size == 2 ? 0x80 : size == 3 ? 0x800 : 0x10000;
    const bool is_character = first >= 0xC0 && first < 0xF8 && code >= least && code <= 0x10FFFF &&
                              (code < 0xD800 || code > 0xDFFF);
    return is_character ? size : 0;
}

}  // namespace

std::string storable(const std::string& text) {
    std::string stored;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = character_size(text, at);
        stored += size != 0 ? text.substr(at, size) : REPLACEMENT;
        at += size != 0 ? size : 1;
    }
    return stored;
}

}  // namespace collector
