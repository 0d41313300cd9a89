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

/// HTTP codes of one report: taken, and refused for good. Both end its stay in the store.
inline constexpr unsigned int code_taken = 200;
inline constexpr unsigned int code_refused = 400;

/// Posts to the endpoint, again at once while no answer comes, up to "max_count_sending_tries"
/// times. Gives the HTTP status, a negative libcurl code or 0, and the answer's text. Throws
/// http_session_exception when the transport cannot even begin.
std::pair<int, std::string> do_post_request(const config_helper& config, const std::string& path,
                                            const std::string& body);

/// Throws std::runtime_error "bad response, isn't a json".
Json::Value parse_response(const std::string& response);

/// The answer's "body", or an empty array when that is no array: nothing but one value per report
/// says anything about a report. Throws what the JSON library throws for an answer that is neither
/// an object nor null.
Json::Value get_body(const Json::Value& response);

/// Whether the value is a number with a fraction, which as a code or state says nothing; the JSON
/// library would cut it to one that does.
bool is_fraction(const Json::Value& value);

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
