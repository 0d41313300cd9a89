#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Json {
class Value;
}

namespace report_tool {

/// Colours of a terminal; elsewhere the text goes out plain.
enum class colour { none, red, yellow, green, grey };

/// Columns one beside the other, numbers to the right.
class table {
public:
    explicit table(std::vector<std::string> titles) { add(std::move(titles)); }
    void add(std::vector<std::string> row) { _rows.push_back(std::move(row)); }
    void print() const;

private:
    std::vector<std::vector<std::string>> _rows;
};

/// The text in that colour where standard output is a terminal.
std::string in_colour(colour wanted, const std::string& text);

/// "1.5 MiB".
std::string readable_size(double bytes);

/// Local time as "2026-11-24 21:05:59".
std::string readable_time(long long seconds);

/// The document on standard output, indented.
void print_json(const Json::Value& value);

/// The system's text for an error number.
std::string error_text(int error);

/// The texts one behind the other.
std::string join(const std::vector<std::string>& texts, const std::string& between = ", ");

/// What a terminal would take for a command, and newlines, replaced.
std::string printable(const std::string& text);

}  // namespace report_tool
