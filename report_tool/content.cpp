#include "content.h"

#include <cstdio>

#include "base64.h"
#include "compression.h"
#include "output.h"

namespace report_tool {
namespace {

constexpr std::size_t bytes_in_a_line = 16;

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
        const bool blank = bytes[at] == '\t' || bytes[at] == '\n' || bytes[at] == '\r';
        const std::size_t size = blank ? 1 : character_size(bytes, at);
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
