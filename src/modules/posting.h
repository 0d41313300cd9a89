#pragma once

#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include "report.h"

namespace reporter {

class config_helper;

namespace modules {

// The exchange with the server and what follows from its answers. On the sender's thread.

/// HTTP status of an answer as a whole.
inline constexpr int status_ok = 200;
inline constexpr int status_bad_request = 400;

/// Codes of one report: taken, and refused for good. Both end its stay in the store.
inline constexpr unsigned int code_taken = 200;
inline constexpr unsigned int code_refused = 400;

/// Posts to the endpoint, again at once while no answer comes (every HTTP status is one), up to
/// "max_count_sending_tries" times. Gives the HTTP status, a negative libcurl code or 0, and the
/// answer's text. Throws http_session_exception when the transport cannot even begin, the endpoint
/// then stays registered, and what config_helper::get throws.
std::pair<int, std::string> do_post_request(const config_helper& config, const std::string& path,
                                            const std::string& body);

/// Throws std::runtime_error "bad response, isn't a json".
Json::Value parse_response(const std::string& response);

// The next three throw what the JSON library throws for a member that is not convertible to an
// integer.

/// A record with the module and the type of the report's JSON, for the statistics.
report create_report(const Json::Value& value);

/// Counts "sent" for every report with one of the ids, its "count" times, at least once.
void update_stat(const std::vector<unsigned int>& ids, std::vector<Json::Value> reports);

/// Counts "removed" for every report with one of the ids, as often as the pair says.
void update_stat(const std::vector<std::pair<unsigned int, unsigned int>>& removed,
                 std::vector<Json::Value> reports);

/// Ids whose code at the same position says that the report is to go. Codes beyond the ids, which
/// only a faulty server sends, say nothing.
std::vector<unsigned int> filter_ids_for_remove(const std::vector<unsigned int>& codes,
                                                const std::vector<unsigned int>& ids);

}  // namespace modules
}  // namespace reporter
