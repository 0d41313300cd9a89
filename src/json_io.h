#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace Json {
class Value;
}

namespace reporter {

/// Whether comments stay with the values that they belong to.
enum class json_comments { keep, skip };

/// Parses any JSON document, with comments in it or without. False when it is none or nests too
/// deeply; `value` is of no use then. Not to be called by two threads at once.
bool json_read(const std::string& text, Json::Value& value, json_comments comments);

/// Where a text is no JSON document, in bytes from its beginning, and why.
struct json_fault {
    std::size_t offset;
    std::string message;
};

/// The first fault of the text for a reader that takes comments, if it has one. Like json_read.
std::optional<json_fault> json_find_fault(const std::string& text);

/// One line, ending in a newline, members in the order of their names.
std::string json_compact(const Json::Value& value);

/// Indented, several lines, with the comments that the value carries.
std::string json_styled(const Json::Value& value);

}  // namespace reporter
