#pragma once

#include <string>
#include <utility>

namespace reporter {

class config_helper;

namespace modules {

// The exchange with the server: one request, one answer as text. On the sender's thread.

/// HTTP status of an answer as a whole.
inline constexpr int status_ok = 200;
inline constexpr int status_bad_request = 400;

/// Posts to the endpoint, and again at once while no answer comes: "max_count_sending_tries" times
/// at most, within 1 to 10. Every HTTP status is an answer. Gives the HTTP status, a negative
/// libcurl code or 0, and the answer's text. Throws http_session_exception when the transport
/// cannot even begin; the endpoint then stays registered. Throws what config_helper::get throws.
std::pair<int, std::string> do_post_request(const config_helper& config, const std::string& path,
                                            const std::string& body);

}  // namespace modules
}  // namespace reporter
