#include "output.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <ctime>

#include <algorithm>
#include <iostream>
#include <system_error>

#include <json/json.h>

namespace report_tool {
namespace {

bool is_number(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char character) {
        return std::isdigit(character) != 0;
    });
}

std::vector<std::size_t> widths_of(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    return widths;
}

}  // namespace

void table::print() const {
    const auto widths = widths_of(_rows);
    for (const auto& row : _rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            const std::string blanks(widths[column] - row[column].size(), ' ');
            line += is_number(row[column]) ? blanks + row[column] : row[column] + blanks;
            line += "  ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        std::cout << line << '\n';
    }
}

std::string in_colour(colour wanted, const std::string& text) {
    static const bool terminal = isatty(STDOUT_FILENO) == 1;
    static const char* const codes[] = {"", "31", "33", "32", "90"};
    if (!terminal || wanted == colour::none) {
        return text;
    }
    return std::string("\033[") + codes[static_cast<int>(wanted)] + "m" + text + "\033[0m";
}

std::string readable_size(double bytes) {
    static const char* const units[] = {"B", "KiB", "MiB", "GiB"};
    std::size_t unit = 0;
    for (; bytes >= 1024 && unit < 3; ++unit) {
        bytes /= 1024;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
    return text;
}

std::string readable_time(long long seconds) {
    const auto moment = static_cast<std::time_t>(seconds);
    std::tm local{};
    char text[64];
    if (localtime_r(&moment, &local) == nullptr ||
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local) == 0) {
        return std::to_string(seconds);
    }
    return text;
}

void print_json(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    std::cout << Json::writeString(writer, value) << '\n';
}

std::string error_text(int error) {
    return std::generic_category().message(error);
}

std::string join(const std::vector<std::string>& texts, const std::string& between) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += joined.empty() ? "" : between;
        joined += text;
    }
    return joined;
}

std::string printable(const std::string& text) {
    std::string plain = text;
    std::replace_if(
        plain.begin(), plain.end(),
        [](unsigned char character) { return character < ' ' || character == 0x7f; }, ' ');
    return plain;
}

}  // namespace report_tool
