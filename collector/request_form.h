#pragma once

#include <cstddef>
#include <map>
#include <stdexcept>
#include <string>

#include <json/json.h>

namespace collector {

/// Bytes of the longest request body that is accepted, and of the longest content of one report.
constexpr std::size_t MAX_BODY_SIZE = 64UL << 20U;

/// The request does not have the form that the agent promises. what() says where.
class malformed_request : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A request whose form has been checked.
struct request_form {
    Json::Value header;  ///< object of strings that every database takes
    Json::Value body;    ///< not empty: reports, or hash strings
    std::map<Json::ArrayIndex, std::string> faults;  ///< reports that have not the form, and why
};

/// Checks the upload of reports, their contents included. Throws malformed_request where the whole
/// of it cannot be used; what is wrong with one report does not touch the others.
request_form parse_report_post(const std::string& text);

/// Checks the question of which contents are known already. Throws malformed_request.
request_form parse_hash_check(const std::string& text);

/// Whether the text is a SHA-256 as the agent writes it: 64 lower-case hexadecimal digits.
bool is_hash(const std::string& text);

}  // namespace collector
