// The class report_sender_module_policy, third of four files: its pre-check of hashes.
#include "modules/report_sender_module.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <vector>

#include <json/value.h>

#include "logging.h"
#include "modules/answer.h"
#include "modules/chunk_rules.h"
#include "modules/counting.h"
#include "modules/posting.h"
#include "stop_deadline.h"
#include "storage/reports_storage.h"

namespace reporter::modules {
namespace {

constexpr unsigned int server_has_it = 1;

template <class Reports>
std::vector<std::string> get_hashes(const Reports& reports,
                                    const std::vector<std::size_t>& filtered) {
    std::vector<std::string> hashes;
    for (const std::size_t position : filtered) {
        hashes.push_back(reports[position]["SHA256"].asString());
        REPORTER_INFO("HASH: " << hashes.back());
    }
    return hashes;
}

// The server may answer with fewer or more states than it was asked for.
template <class Reports>
std::vector<unsigned int> get_known_ids(const Reports& reports,
                                        const std::vector<std::size_t>& filtered,
                                        const Json::Value& states) {
    std::vector<unsigned int> known;
    std::size_t idx = 0;
    for (const Json::Value& element : states) {
        const unsigned int state = element.asUInt();
        REPORTER_INFO("idx: " << idx << " state: " << state);
        if (state == server_has_it && idx < filtered.size()) {
            const auto& report = reports[filtered[idx]];
            known.push_back(report["_ID"].asUInt());
            REPORTER_INFO("ID: " << known.back() << " - HASH: " << report["SHA256"].asString());
        } else if (state == server_has_it) {
            // Kept: "to many", as the log's readers look for it.
            REPORTER_INFO("to many states of hashes");
        }
        ++idx;
    }
    return known;
}

template <class Reports>
void drop_reports(Reports& reports, const std::vector<unsigned int>& ids) {
    const std::unordered_set<unsigned int> ids_table(ids.begin(), ids.end());
    const auto is_known = [&ids_table](const Json::Value& report) {
        const unsigned int id = report["_ID"].asUInt();
        const auto count = ids_table.count(id);
        REPORTER_INFO("ids_table::size: " << ids_table.size() << " count( " << id
                                          << " )= " << count);
        return count != 0;
    };
    reports.erase(std::remove_if(reports.begin(), reports.end(), is_known), reports.end());
}

}  // namespace

template <class Cursor, class Reports>
void report_sender_module_policy::check_hashes(Cursor& cursor, Reports& reports) {
    if (_stopped) {
        return;
    }
    try {
        const auto filtered = take_marks(reports);
        const auto hashes = get_hashes(reports, filtered);
        if (hashes.empty()) {
            return;
        }
        const std::string body = build_request(hashes);
        const auto path = _config.get<std::string>("check_hashes_path", "check_hashes");
        const auto [status, answer] = do_post_request(_config, path, body);
        if (status != status_ok) {
            REPORTER_INFO("can't check hashes: status code: " << status << " response: " << answer);
            return;
        }
        const settling answered;
        const Json::Value response = parse_response(answer);
        REPORTER_INFO("filtered_reports::size: " << filtered.size());
        const auto known = get_known_ids(reports, filtered, response["body"]);
        const auto removed = cursor.get_db()->remove_reports(known);
        if (!removed.empty()) {
            update_stat(removed, reports);
        }
        drop_reports(reports, known);
    } catch (const std::exception& error) {
        REPORTER_ERROR(error.what());
    }
}

template void report_sender_module_policy::check_hashes(reports_storage_cursor&,
                                                        std::vector<Json::Value>&);

}  // namespace reporter::modules
