#include "modules/counting.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

#include "logging.h"
#include "stats.h"

namespace reporter::modules {
namespace {

using reports_by_id = std::unordered_map<unsigned int, std::vector<const Json::Value*>>;

// Looks at each report once, not once for every id.
reports_by_id index_by_id(const std::vector<Json::Value>& reports) {
    reports_by_id index;
    for (const auto& report : reports) {
        index[report["_ID"].asUInt()].push_back(&report);
    }
    return index;
}

template <class Count>
void count_events(const reports_by_id& index, unsigned int id, const char* event, Count count) {
    const auto found = index.find(id);
    if (found == index.end()) {
        return;
    }
    for (const Json::Value* report : found->second) {
        const unsigned int most = std::numeric_limits<int>::max();
        add_event(event, static_cast<int>(std::min(count(*report), most)), create_report(*report));
    }
}

}  // namespace

report create_report(const Json::Value& value) {
    report record;
    record.module = static_cast<std::int16_t>(value["module"].asInt());
    record.type = static_cast<std::int16_t>(value["type"].asInt());
    REPORTER_INFO("create_report: " << record.module);
    return record;
}

// Kept: the records come by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void update_stat(const std::vector<unsigned int>& ids, std::vector<Json::Value> reports) {
    const auto index = index_by_id(reports);
    for (const unsigned int id : ids) {
        count_events(index, id, "sent", [](const Json::Value& report) {
            return std::max(report["count"].asUInt(), 1U);
        });
    }
}

void update_stat(const std::vector<std::pair<unsigned int, unsigned int>>& removed,
                 // NOLINTNEXTLINE(performance-unnecessary-value-param)
                 std::vector<Json::Value> reports) {
    const auto index = index_by_id(reports);
    for (const auto& [id, occurrences] : removed) {
        count_events(index, id, "removed",
                     [count = occurrences](const Json::Value&) { return count; });
    }
}

}  // namespace reporter::modules
