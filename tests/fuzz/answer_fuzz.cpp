#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <ios>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "http_session.h"
#include "journal.h"
#include "json_io.h"
#include "logging.h"
#include "modules/report_sender_module.h"
#include "stats.h"
#include "storage/reports_storage.h"

namespace {

constexpr const char* settings = R"({"server_url": "", "server_port": "", "config_version": "",
    "max_body_size": 200, "max_count_sending_tries": 2, "processor": {"dispatching_time": ""}})";

// The store's reports, with the ids 1 to 4.
constexpr const char* reports[] = {R"({"check_hash": 1, "SHA256": "1"})", R"({"module": 2})",
                                   R"({"check_hash": 1, "SHA256": "3", "count": 3})",
                                   R"({"module": -1})"};

// What the server answers in this run. Where a status is no number, the request cannot even begin.
std::string check_status, check_answer, post_status, post_answer;
// Ids that its answers allow to remove, and those that were removed.
std::set<unsigned int> allowed;
std::vector<unsigned int> removed;

std::string take_line(std::string& input) {
    const std::size_t end = std::min(input.find('\n'), input.size());
    std::string line = input.substr(0, end);
    input.erase(0, end + 1);
    return line;
}

bool allows_removal(const Json::Value& code, bool is_post) {
    const int value = code.isConvertibleTo(Json::intValue) ? code.asInt() : 0;
    return is_post ? value == 200 || value == 400 : value == 1;
}

// An entry is a report or its hash; as hash, the reports here have their ids.
unsigned int id_of(const Json::Value& entry) {
    return entry.isObject() ? entry["_ID"].asUInt()
                            : static_cast<unsigned int>(std::stoul(entry.asString()));
}

void judge(int status, const std::string& reply, const Json::Value& entries, bool is_post) {
    Json::Value response;
    reporter::json_read(status == 200 ? reply : "null", response, reporter::json_comments::skip);
    std::vector<Json::Value> codes;
    for (const Json::Value& code : response.isObject() ? response["body"] : Json::Value()) {
        codes.push_back(code);
    }
    for (Json::ArrayIndex i = 0; i < entries.size(); ++i) {
        if (i < codes.size() ? allows_removal(codes[i], is_post) : is_post && status == 400) {
            allowed.insert(id_of(entries[i]));
        }
    }
}

}  // namespace

// Input: a line with the status of the pre-check, a line with its answer, a line with the status of
// the post, and its answer to the end.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace reporter;
    static const config_helper config(parse_config(settings), {});
    static auto storage = reports_storage::make(lua_sandbox(config, "", ""), true);
    post_answer.assign(reinterpret_cast<const char*>(data), size);
    check_status = take_line(post_answer);
    check_answer = take_line(post_answer);
    post_status = take_line(post_answer);
    allowed.clear();
    removed.clear();
    try {
        reports_storage_cursor cursor(storage, {1, 2, 3, 4});
        modules::report_sender_module_policy(config, storage).process_cursor(cursor);
    } catch (const std::exception&) {
        // The cycle ends here. What was removed before stays removed.
    }
    std::sort(removed.begin(), removed.end());
    assert(std::adjacent_find(removed.begin(), removed.end()) == removed.end());
    assert(std::includes(allowed.begin(), allowed.end(), removed.begin(), removed.end()));
    return 0;
}

// What follows takes the place of the library's and the system's own. Nobody reads the log of a
// run, on which it would spend two thirds of its time, and pauses tell it nothing.
namespace reporter {

int default_http_session_policy::post_impl(const std::string& url, unsigned int,
                                           const std::string& body, std::string& reply) {
    Json::Value request;
    assert(json_read(body, request, json_comments::skip));
    const bool is_post = url.substr(url.rfind('/') + 1) == "reports";
    const int status = std::stoi(is_post ? post_status : check_status);
    reply = is_post ? post_answer : check_answer;
    judge(status, reply, request["body"], is_post);
    return status;
}

std::string reports_storage::get_report_as_json(unsigned int id) {
    return reports[id - 1];
}

std::vector<std::pair<unsigned int, unsigned int>> reports_storage::remove_reports(
    const std::vector<unsigned int>& ids) {
    std::vector<std::pair<unsigned int, unsigned int>> counts;
    for (const unsigned int id : ids) {
        removed.push_back(id);
        counts.emplace_back(id, 1);
    }
    return counts;
}

void reports_storage::skip_report(unsigned int) {}

bool journal::add(const std::string&, const std::string&) {
    return true;
}

void add_event(const std::string&, int count, const report&) {
    assert(count > 0);
}

log_record::log_record(log_priority priority, const char* file, const char* function,
                       int line) noexcept
    : _priority(priority), _file(file), _function(function), _line(line) {
    _text.setstate(std::ios::badbit);
}

log_record::~log_record() = default;

}  // namespace reporter

extern "C" int nanosleep(const timespec*, timespec*) {
    return 0;
}
