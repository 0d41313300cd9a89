// The class report_sender_module_policy, last of four files: the text of its requests.
#include "modules/request.h"

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

// What the statistics need of a report once it is sent.
Json::Value summary_of(const Json::Value& report) {
    Json::Value summary(Json::objectValue);
    for (const char* name : {"_ID", "type", "count", "module"}) {
        summary[name] = report[name];
    }
    return summary;
}

// Moves each report into the body and leaves its summary behind, so that a chunk is in memory once.
Json::Value create_body(std::vector<Json::Value>& reports) {
    REPORTER_INFO("documents: ");
    Json::Value body(Json::arrayValue);
    for (auto& report : reports) {
        Json::Value summary = summary_of(report);
        body.append(std::exchange(report, std::move(summary)));
    }
    return body;
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

std::string report_sender_module_policy::build_request(std::vector<Json::Value>& reports) const {
    Json::Value request(Json::objectValue);
    request["header"] = create_header();
    request["body"] = create_body(reports);
    return json_compact(request);
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
