#include "json_io.h"

#include <json/json.h>

// The one place for the library's old reader and writers. Servers, scripts and technicians' tools
// know their output; that of the newer ones has other blanks and comments.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace reporter {

bool json_read(const std::string& text, Json::Value& value, json_comments comments) {
    try {
        // By pointer, as the reader would copy a string first.
        return Json::Reader().parse(text.data(), text.data() + text.size(), value,
                                    comments == json_comments::keep);
    } catch (const Json::Exception&) {
        // Nesting beyond the reader's limit is thrown, not reported.
        return false;
    }
}

std::optional<json_fault> json_find_fault(const std::string& text) {
    Json::Reader reader;
    Json::Value value;
    try {
        if (reader.parse(text.data(), text.data() + text.size(), value, true)) {
            return std::nullopt;
        }
    } catch (const Json::Exception& error) {
        return json_fault{0, error.what()};
    }
    const auto errors = reader.getStructuredErrors();
    if (errors.empty()) {
        return json_fault{0, "no JSON"};
    }
    return json_fault{static_cast<std::size_t>(errors[0].offset_start), errors[0].message};
}

std::string json_compact(const Json::Value& value) {
    return Json::FastWriter().write(value);
}

std::string json_styled(const Json::Value& value) {
    return Json::StyledWriter().write(value);
}

}  // namespace reporter
