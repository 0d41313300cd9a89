#include <algorithm>

#include "fuzz.h"
#include "json_io.h"
#include "sending.h"

namespace {

// The server knows every other hash and takes every report.
int take_all(const std::string& path, const Json::Value& entries, std::string& reply) {
    Json::Value response;
    for (Json::ArrayIndex i = 0; i < entries.size(); ++i) {
        response["body"].append(path == "reports" ? 200U : i % 2);
    }
    reply = reporter::json_compact(response);
    return 200;
}

}  // namespace

// Input: a report in each line, as a storage script might give it.
void fuzz_one(const std::string& input) {
    // A request nests deeper than its reports, and its reader has a limit.
    if (std::count(input.begin(), input.end(), '[') + std::count(input.begin(), input.end(), '{') >
        900) {
        return;
    }
    sending cycle{{}, take_all, {}};
    std::vector<unsigned int> readable;
    bool uncounted = false;  // a report has a member that the statistics do not take
    for (std::string rest = input; !rest.empty();) {
        cycle.reports.push_back(take_line(rest));
        Json::Value report;
        if (reporter::json_read(cycle.reports.back(), report, reporter::json_comments::skip) &&
            report.isObject()) {
            readable.push_back(static_cast<unsigned int>(cycle.reports.size()));
            uncounted |= !report["module"].isConvertibleTo(Json::intValue) ||
                         !report["type"].isConvertibleTo(Json::intValue) ||
                         !report["count"].isConvertibleTo(Json::uintValue);
        }
    }
    try {
        cycle.run();
        assert(!uncounted);
    } catch (const Json::Exception&) {
        assert(uncounted);
        return;
    }
    std::sort(cycle.removed.begin(), cycle.removed.end());
    assert(cycle.removed == readable);
}
