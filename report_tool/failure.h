#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace report_tool {

/// A failure with a fixed word for its cause, for programs, beside the text for a person.
class failure : public std::runtime_error {
public:
    failure(std::string cause_word, const std::string& text)
        : std::runtime_error(text), cause(std::move(cause_word)) {}
    std::string cause;
};

}  // namespace report_tool
