#pragma once

#include <optional>
#include <string>

#include <json/value.h>

namespace report_tool {

/// The bytes that came with a report, of its JSON; empty for an encoding that is not the shipped
/// script's.
std::optional<std::string> decode_content(const Json::Value& report);

/// Replaces the member "content" of the report by "text", or by "hex" where it is no text. False,
/// with the report as it was, when it cannot be decoded.
bool unpack_content(Json::Value& report);

/// Whether these bytes are valid UTF-8 without what a terminal would take for a command.
bool is_text(const std::string& bytes);

/// Two digits a byte.
std::string hex(const std::string& bytes, const char* between = "");

/// Lines of sixteen bytes, each with its place, the bytes as hex and what of them is printable.
std::string hex_dump(const std::string& bytes);

}  // namespace report_tool
