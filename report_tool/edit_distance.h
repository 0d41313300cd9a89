#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace report_tool {

/// How many characters must be put in, taken out or replaced to make one text of the other.
inline std::size_t edit_distance(const std::string& from, const std::string& to) {
    std::vector<std::size_t> row(to.size() + 1);
    for (std::size_t column = 0; column <= to.size(); ++column) {
        row[column] = column;
    }
    for (const char letter : from) {
        std::size_t diagonal = row[0]++;
        for (std::size_t column = 1; column <= to.size(); ++column) {
            const std::size_t replaced = diagonal + (letter == to[column - 1] ? 0 : 1);
            diagonal = row[column];
            row[column] = std::min({replaced, diagonal + 1, row[column - 1] + 1});
        }
    }
    return row.back();
}

}  // namespace report_tool
