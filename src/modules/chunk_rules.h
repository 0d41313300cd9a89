#pragma once

#include <cstddef>
#include <vector>

#include <json/value.h>

#include "logging.h"

namespace reporter::modules {

// How reports are divided into requests, by the cycle and by a forecast of it. Any thread.

/// Whether a report of so many bytes begins another chunk. One at the limit does even where the
/// chunk is empty, so that an empty chunk goes first.
inline bool begins_chunk(std::size_t chunk_size, std::size_t json_size, std::size_t max_size) {
    return chunk_size + json_size >= max_size;
}

/// Positions of the reports about which the server is asked first. The mark is this program's own,
/// so it is taken off every report. Throws what the JSON library throws for a mark that does not
/// convert.
template <class Reports>
std::vector<std::size_t> take_marks(Reports& reports) {
    constexpr unsigned int check_wanted = 1;
    std::vector<std::size_t> filtered;
    for (std::size_t position = 0; position < reports.size(); ++position) {
        auto& report = reports[position];
        const unsigned int mark = report["check_hash"].asUInt();
        REPORTER_INFO("NEED CHECK HASH: " << mark);
        if (mark == check_wanted) {
            filtered.push_back(position);
        }
        report.removeMember("check_hash");
    }
    return filtered;
}

}  // namespace reporter::modules
