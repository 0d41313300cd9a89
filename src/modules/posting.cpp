#include "modules/posting.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <unordered_map>

#include "common.h"
#include "configuration.h"
#include "http_session.h"
#include "logging.h"
#include "stats.h"

namespace reporter::modules {
namespace {

constexpr unsigned int max_tries = 10;

using reports_by_id = std::unordered_map<unsigned int, std::vector<const Json::Value*>>;

// One look at each report instead of one per id and report.
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

std::pair<int, std::string> do_post_request(const config_helper& config, const std::string& path,
                                            const std::string& body) {
    REPORTER_INFO("try to do post request( " << path << " )");
    REPORTER_INFO("request size: " << body.size());
    auto* session = create_http_session(config, path);
    const auto tries =
        std::clamp(config.get<unsigned int>("max_count_sending_tries"), 1U, max_tries);
    int status = 0;
    for (unsigned int current = 1; current <= tries && status <= 0; ++current) {
        REPORTER_INFO("current try: " << current << " max count tries: " << tries);
        status = session->post(body);
    }
    std::string answer = std::move(session->reply);
    REPORTER_INFO("response status code: " << status);
    REPORTER_INFO("response: " << answer);
    remove_http_session(path);
    return {status, std::move(answer)};
}

Json::Value parse_response(const std::string& response) {
    try {
        return json_parse(response);
    } catch (const std::exception&) {
        throw std::runtime_error("bad response, isn't a json");
    }
}

report create_report(const Json::Value& value) {
    report record;
    record.module = static_cast<std::int16_t>(value["module"].asInt());
    record.type = static_cast<std::int16_t>(value["type"].asInt());
    REPORTER_INFO("create_report: " << record.module);
    return record;
}

// The records come by value, summaries or the callers' own copies.
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

std::vector<unsigned int> filter_ids_for_remove(const std::vector<unsigned int>& codes,
                                                const std::vector<unsigned int>& ids) {
    std::vector<unsigned int> settled;
    const std::size_t pairs = std::min(codes.size(), ids.size());
    for (std::size_t i = 0; i < pairs; ++i) {
        if (codes[i] == code_taken || codes[i] == code_refused) {
            settled.push_back(ids[i]);
        }
    }
    return settled;
}

}  // namespace reporter::modules
