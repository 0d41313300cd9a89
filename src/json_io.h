#pragma once

#include <string>

namespace Json {
class Value;
}

namespace reporter {

enum class json_comments { keep, skip };

/// Parses any JSON document; false when it is not one or nests too deeply. Not to be called by two
/// threads at once.
bool json_read(const std::string& text, Json::Value& value, json_comments comments);

/// One line, ending in a newline.
std::string json_compact(const Json::Value& value);

/// Indented, several lines, with the comments that the value carries.
std::string json_styled(const Json::Value& value);

}  // namespace reporter
