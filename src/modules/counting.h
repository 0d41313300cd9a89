#pragma once

#include <utility>
#include <vector>

#include <json/value.h>

#include "report.h"

namespace reporter::modules {

// What the statistics count of reports that were answered. On the sender's thread, which holds no
// file_lock. All three throw what the JSON library throws for a member that does not convert to an
// integer; what was counted before stays counted. A counter that cannot be written is only logged.

/// A record with the module and the type of the report's JSON, cut to 16 bits, without content.
report create_report(const Json::Value& value);

/// Counts "sent" for every report with one of the ids, its "count" times, at least once.
void update_stat(const std::vector<unsigned int>& ids, std::vector<Json::Value> reports);

/// Counts "removed" for every report with one of the ids, as often as the pair (id, occurrences)
/// says.
void update_stat(const std::vector<std::pair<unsigned int, unsigned int>>& removed,
                 std::vector<Json::Value> reports);

}  // namespace reporter::modules
