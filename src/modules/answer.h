#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace reporter::modules {

// What an answer says about the reports of its request. Any thread.

/// Codes of one report: taken, and refused for good. Both end its stay in the store.
inline constexpr unsigned int code_taken = 200;
inline constexpr unsigned int code_refused = 400;

/// The answer as a document of any kind. Throws std::runtime_error "bad response, isn't a json".
Json::Value parse_response(const std::string& response);

/// Ids whose code at the same position says that the report is to go, in their order. An id without
/// a code stays. Codes beyond the ids, which only a faulty server sends, say nothing.
std::vector<unsigned int> filter_ids_for_remove(const std::vector<unsigned int>& codes,
                                                const std::vector<unsigned int>& ids);

}  // namespace reporter::modules
