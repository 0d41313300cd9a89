#include "content.h"

#include <cstdio>

#include "base64.h"
#include "compression.h"

namespace report_tool {
namespace {

constexpr std::size_t bytes_in_a_line = 16;

unsigned char byte_at(const std::string& bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes[at]);
}

// Bytes of the UTF-8 character that begins there, 0 for none. Control characters are none but for
// tabulators and the ends of lines.
std::size_t character_size(const std::string& bytes, std::size_t at) {
    const unsigned char first = byte_at(bytes, at);
    if (first < 0x80) {
        return (first >= ' ' && first != 0x7f) || first == '\t' || first == '\n' || first == '\r';
    }
    const std::size_t size = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    if (size == 0 || first > 0xf4 || size > bytes.size() - at) {
        return 0;
    }
    for (std::size_t next = 1; next < size; ++next) {
        if ((byte_at(bytes, at + next) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const bool control = first == 0xc2 && byte_at(bytes, at + 1) < 0xa0;
    return control ? 0 : size;
}

}  // namespace

std::optional<std::string> decode_content(const Json::Value& report) {
    const Json::Value& content = report["content"];
    if (!content.isString() || report["encoding"] != "deflate+base64") {
        return std::nullopt;
    }
    const std::string packed = content.asString();
    const std::string stream =
        reporter::base64_decode(packed.data(), static_cast<unsigned int>(packed.size()));
    return reporter::inflate(stream.data(), static_cast<unsigned int>(stream.size()));
}

bool unpack_content(Json::Value& report) {
    const auto bytes = decode_content(report);
    if (bytes) {
        report.removeMember("content");
        report.removeMember("encoding");
        report[is_text(*bytes) ? "text" : "hex"] = is_text(*bytes) ? *bytes : hex(*bytes);
    }
    return bytes.has_value();
}

std::string hex(const std::string& bytes, const char* between) {
    std::string text;
    for (const char byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += text.empty() ? "" : between;
        text += digits;
    }
    return text;
}

bool is_text(const std::string& bytes) {
    std::size_t at = 0;
    while (at < bytes.size()) {
        const std::size_t size = character_size(bytes, at);
        if (size == 0) {
            return false;
        }
        at += size;
    }
    return true;
}

std::string hex_dump(const std::string& bytes) {
    std::string lines;
    for (std::size_t at = 0; at < bytes.size(); at += bytes_in_a_line) {
        std::string line = bytes.substr(at, bytes_in_a_line);
        char begin[80];
        std::snprintf(begin, sizeof begin, "%08zx  %-47s  ", at, hex(line, " ").c_str());
        for (char& byte : line) {
            byte = byte >= ' ' && byte < 0x7f ? byte : '.';
        }
        lines += begin + line + "\n";
    }
    return lines;
}

}  // namespace report_tool
