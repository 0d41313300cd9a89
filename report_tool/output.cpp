#include "output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include <algorithm>
#include <iostream>
#include <system_error>

#include <json/json.h>

#include "json_io.h"

namespace report_tool {
namespace {

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
    print(std::cout);
}

void table::print(std::ostream& to) const {
    const auto widths = widths_of(_rows);
    for (const auto& row : _rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            const std::string blanks(widths[column] - row[column].size(), ' ');
            line += is_number(row[column]) ? blanks + row[column] : row[column] + blanks;
            line += "  ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        to << line << '\n';
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
    if (moment != seconds || localtime_r(&moment, &local) == nullptr ||
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

void print_json_line(const Json::Value& value) {
    std::cout << reporter::json_compact(value);
}

std::string text_of(const Json::Value& object, const char* member) {
    const Json::Value& value = object[member];
    return printable(value.isConvertibleTo(Json::stringValue) ? value.asString()
                                                              : reporter::json_compact(value));
}

double number_of(const Json::Value& object, const char* member) {
    return object[member].isNumeric() ? object[member].asDouble() : 0;
}

std::string time_of(const Json::Value& object, const char* member) {
    return object[member].isNumeric()
               ? readable_time(static_cast<long long>(number_of(object, member)))
               : text_of(object, member);
}

std::string counted(std::size_t number, const std::string& thing) {
    return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

bool is_confirmed(const std::string& question) {
    std::cerr << question << " [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "yes";
}

bool write_all(int descriptor, const std::string& bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        const ssize_t size = write(descriptor, bytes.data() + at, bytes.size() - at);
        if (size < 0 && errno != EINTR) {
            return false;
        }
        at += size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    return true;
}

bool is_number(const std::string& text) {
    const std::size_t first = text.rfind('-', 0) == 0 ? 1 : 0;
    return text.size() > first && text.find_first_not_of("0123456789", first) == std::string::npos;
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

std::size_t character_size(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t place) { return static_cast<unsigned char>(text[place]); };
    const unsigned char first = byte(at);
    if (first < 0x80) {
        return first >= ' ' && first != 0x7f ? 1 : 0;
    }
    const std::size_t size = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    if (size == 0 || first > 0xf4 || size > text.size() - at) {
        return 0;
    }
    for (std::size_t next = at + 1; next < at + size; ++next) {
        if ((byte(next) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const bool control = first == 0xc2 && byte(at + 1) < 0xa0;
    return control ? 0 : size;
}

std::string printable(const std::string& text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = character_size(text, at);
        plain += size > 0 ? text.substr(at, size) : " ";
        at += std::max<std::size_t>(size, 1);
    }
    return plain;
}

}  // namespace report_tool
