#pragma once

#include <utility>
#include <vector>

#include <json/value.h>

#include "report.h"

namespace reporter::modules {

// What the statistics count of reports that were answered. On the sender's thread. All three throw
// what the JSON library throws for a member that is not convertible to an integer.

/// A record with the module and the type of the report's JSON, for the statistics.
report create_report(const Json::Value& value);

/// Counts "sent" for every report with one of the ids, its "count" times, at least once.
void update_stat(const std::vector<unsigned int>& ids, std::vector<Json::Value> reports);

/// Counts "removed" for every report with one of the ids, as often as the pair says.
void update_stat(const std::vector<std::pair<unsigned int, unsigned int>>& removed,
                 std::vector<Json::Value> reports);

}  // namespace reporter::modules
