#pragma once

#include <cstddef>
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
    void print(std::ostream& to) const;

private:
    std::vector<std::vector<std::string>> _rows;
};

/// The text in that colour where standard output is a terminal.
std::string in_colour(colour wanted, const std::string& text);

/// "1.5 MiB".
std::string readable_size(double bytes);

/// Local time as "2026-11-24 21:05:59"; the number where time_t, of 32 bits on the device, or the
/// calendar does not reach so far.
std::string readable_time(long long seconds);

/// The document on standard output, indented.
void print_json(const Json::Value& value);

/// The document on standard output in one line.
void print_json_line(const Json::Value& value);

// Members of an object that a storage script made, and so of any kind, or missing.

/// As text on one line.
std::string text_of(const Json::Value& object, const char* member);
/// 0 when it is no number.
double number_of(const Json::Value& object, const char* member);
/// Seconds as readable_time() has them.
std::string time_of(const Json::Value& object, const char* member);

/// "1 report", "2 reports".
std::string counted(std::size_t number, const std::string& thing);

/// Asks on the terminal; anything but "y" or "yes" is no.
bool is_confirmed(const std::string& question);

/// False where it cannot be written, as errno says.
bool write_all(int descriptor, const std::string& bytes);

/// Digits with a minus or none before them.
bool is_number(const std::string& text);

/// The system's text for an error number.
std::string error_text(int error);

/// The texts one behind the other.
std::string join(const std::vector<std::string>& texts, const std::string& between = ", ");

/// Bytes of the UTF-8 character that begins there; 0 for none, and for one that a terminal would
/// take for a command, or a newline.
std::size_t character_size(const std::string& text, std::size_t at);

/// The text with a blank for each byte that is no part of such a character.
std::string printable(const std::string& text);

}  // namespace report_tool
