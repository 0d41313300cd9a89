// The class report_sender_module_policy, last of four files: the text of its requests.
#include "modules/request.h"

#include <malloc.h>

#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <utility>
#include <vector>

#include <json/value.h>
#include <boost/date_time/posix_time/posix_time.hpp>

#include "json_io.h"
#include "logging.h"
#include "modules/report_sender_module.h"
#include "sys_info.h"

namespace reporter::modules {
namespace {

constexpr const char* agent_version = TEV_VERSION;

// Bytes of text that are written before the memory of the reports in it goes back to the system.
constexpr std::size_t trim_interval = 32768;

// What the statistics need of a report once it is sent.
Json::Value summary_of(const Json::Value& report) {
    Json::Value summary(Json::objectValue);
    for (const char* name : {"_ID", "type", "count", "module"}) {
        // The name as it stands, or each summary would hold a copy.
        summary[Json::StaticString(name)] = report[name];
    }
    return summary;
}

// Without the newline that ends a document.
std::string compact_member(const Json::Value& value) {
    std::string text = json_compact(value);
    text.pop_back();
    return text;
}

std::size_t size_of_members(const std::vector<Json::Value>& values) {
    std::size_t size = 0;
    for (const auto& value : values) {
        size += compact_member(value).size() + 1;
    }
    return size;
}

// Appends the reports to the text and leaves their summaries. A report is freed as soon as it is
// written. The summaries are made before, all together: in the gaps that the reports leave they
// would keep every page in use.
void create_body(std::vector<Json::Value>& reports, std::string& text) {
    REPORTER_INFO("documents: ");
    std::vector<Json::Value> summaries;
    summaries.reserve(reports.size());
    std::transform(reports.begin(), reports.end(), std::back_inserter(summaries), summary_of);
    const char* separator = "";
    std::size_t trimmed_at = 0;
    for (auto& report : reports) {
        text.append(separator).append(compact_member(report));
        separator = ",";
        report = Json::Value();
        if (text.size() - trimmed_at >= trim_interval) {
            malloc_trim(0);
            trimmed_at = text.size();
        }
    }
    malloc_trim(0);
    reports = std::move(summaries);
}

}  // namespace

std::string get_datetime() {
    return boost::posix_time::to_iso_extended_string(
        boost::posix_time::microsec_clock::universal_time());
}

std::string get_value_if_exists(const char* key) {
    static const std::unordered_map<std::string, std::string> facts = get_sys_info();
    const auto found = facts.find(key);
    return found != facts.end() ? found->second : "N/A";
}

Json::Value report_sender_module_policy::create_header() const {
    Json::Value header(Json::objectValue);
    header["ver"] = agent_version;
    header["datetime"] = get_datetime();
    header["config_ver"] = _config.get<std::string>("config_version");
    header["DUID"] = _config.get<bool>("reporter_registration")
                         ? _config.get<std::string>("agent_registered_duid")
                         : get_value_if_exists("DUID");
    header["vendor"] = get_value_if_exists("VENDOR");
    header["manufacturer"] = get_value_if_exists("MANUFACTURER");
    header["product_type"] = get_value_if_exists("PRODUCT_TYPE");
    header["DTV_type"] = get_value_if_exists("DTV_TYPE");
    header["sw_version_model"] = get_value_if_exists("SW_VERSION_MODEL");
    header["sw_version"] = get_value_if_exists("SW_VERSION");
    header["platform_name"] = get_value_if_exists("PLATFORM_NAME");
    header["tizen_version"] = get_value_if_exists("TIZEN_VERSION");
    REPORTER_INFO("header: " << json_styled(header));
    return header;
}

// The text is what json_compact makes of the whole request. Written by parts, into room of its
// size, it is in memory once.
std::string report_sender_module_policy::build_request(std::vector<Json::Value>& reports) const {
    constexpr const char *begin = R"({"body":[)", *middle = R"(],"header":)", *end = "}\n";
    const std::string header = compact_member(create_header());
    std::string text;
    text.reserve(32 + size_of_members(reports) + header.size());
    text += begin;
    create_body(reports, text);
    text.append(middle).append(header).append(end);
    return text;
}

std::string report_sender_module_policy::build_request(
    const std::vector<std::string>& hashes) const {
    Json::Value request(Json::objectValue);
    request["header"] = create_header();
    Json::Value& body = request["body"] = Json::Value(Json::arrayValue);
    for (const auto& hash : hashes) {
        body.append(hash);
    }
    return json_compact(request);
}

}  // namespace reporter::modules
