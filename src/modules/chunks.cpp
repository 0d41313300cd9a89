// The class report_sender_module_policy, second of four files: its chunks, and what becomes of
// them.
#include "modules/report_sender_module.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include "journal.h"
#include "logging.h"
#include "modules/answer.h"
#include "modules/chunk_rules.h"
#include "modules/counting.h"
#include "modules/posting.h"
#include "pause.h"
#include "stop_deadline.h"
#include "storage/reports_storage.h"

namespace reporter::modules {
namespace {

using report_chunk = std::vector<Json::Value>;

// A report that is no object is passed over here. Further on it would end the whole cycle.
template <class Cursor>
Json::Value read_report(Cursor& cursor) {
    Json::Value report = cursor.to_json();
    if (!report.isObject()) {
        throw std::runtime_error("report isn't an object");
    }
    return report;
}

std::vector<unsigned int> get_ids(const report_chunk& chunk) {
    std::vector<unsigned int> ids;
    ids.reserve(chunk.size());
    for (const auto& report : chunk) {
        ids.push_back(report["_ID"].asUInt());
    }
    return ids;
}

void settle(reports_storage& storage, const report_chunk& chunk,
            const std::vector<unsigned int>& settled_ids) {
    if (!settled_ids.empty()) {
        update_stat(settled_ids, chunk);
    }
    const auto removed = storage.remove_reports(settled_ids);
    if (!removed.empty()) {
        update_stat(removed, chunk);
    }
}

}  // namespace

template <class Cursor>
void report_sender_module_policy::process_cursor(Cursor& cursor) {
    REPORTER_INFO("next cursor");
    const std::size_t max_size = _config.get<unsigned int>("max_body_size");
    report_chunk chunk;
    std::size_t chunk_size = 0;
    unsigned int chunk_index = 0;
    REPORTER_INFO("reports size: " << cursor.size());
    while (cursor.has_next()) {
        if (_stopped) {
            break;
        }
        REPORTER_INFO("chunk_index: " << chunk_index);
        Json::Value report;
        try {
            report = read_report(cursor);
        } catch (const std::exception& error) {
            get_journal().add(journal_source, error.what());
            REPORTER_ERROR("can't get report: " << error.what());
            continue;
        }
        REPORTER_INFO("slow down");
        slow_down_pause();
        const std::size_t json_size = cursor.get_json_size();
        REPORTER_INFO("JSON size: " << json_size << " chunk_size: " << chunk_size
                                    << " max chunk size: " << max_size);
        // Kept: where the first report is at the limit, an empty chunk is flushed, which uploads
        // nothing. No report is split or dropped for its size.
        if (begins_chunk(chunk_size, json_size, max_size)) {
            process_chunk(cursor, chunk);
            chunk.clear();
            ++chunk_index;
            chunk_size = 0;
        }
        report["_ID"] = cursor.get_id();
        chunk.push_back(std::move(report));
        chunk_size += json_size;
        REPORTER_INFO("slow down");
        slow_down_pause();
    }
    if (chunk_size != 0) {
        process_chunk(cursor, chunk);
    }
}

template <class Cursor, class Chunk>
void report_sender_module_policy::process_chunk(Cursor& cursor, Chunk& chunk) {
    if (_stopped) {
        return;
    }
    REPORTER_INFO("count reports before checking hashes: " << chunk.size());
    check_hashes(cursor, chunk);
    REPORTER_INFO("slow down");
    slow_down_pause();
    REPORTER_INFO("count reports after checking hashes: " << chunk.size());
    send_reports(cursor, chunk);
}

template <class Cursor, class Chunk>
void report_sender_module_policy::send_reports(Cursor& cursor, Chunk& chunk) {
    const std::vector<unsigned int> ids = get_ids(chunk);
    REPORTER_INFO("reports count: " << ids.size());
    std::vector<unsigned int> codes;
    std::optional<settling> answered;
    if (!chunk.empty() && !_stopped) {
        const std::string body = build_request(chunk);
        const auto path = _config.get<std::string>("reports_path", "reports");
        const auto [status, answer] = do_post_request(_config, path, body);
        if (status == status_ok || status == status_bad_request) {
            answered.emplace();
        }
        const Json::Value response = status == status_ok ? parse_response(answer) : Json::Value();
        for (const Json::Value& element : response["body"]) {
            const int code = element.asInt();
            if (code == static_cast<int>(code_taken)) {
                REPORTER_INFO("some_report_was_sent: 0");
            }
            REPORTER_INFO("code: " << code);
            codes.push_back(static_cast<unsigned int>(code));
        }
        if (status == status_bad_request) {
            codes.assign(ids.size(), code_refused);
        }
    }
    REPORTER_INFO("codes: " << codes.size());
    for (const unsigned int code : codes) {
        REPORTER_INFO(code);
    }
    settle(*cursor.get_db(), chunk, filter_ids_for_remove(codes, ids));
}

template void report_sender_module_policy::process_cursor(reports_storage_cursor&);
template void report_sender_module_policy::process_chunk(reports_storage_cursor&, report_chunk&);

}  // namespace reporter::modules
