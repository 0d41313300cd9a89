#pragma once

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>

#include "logging.h"

namespace reporter {

class config_helper;

/// Platform setting with the server's address, for "vxt_service".
inline constexpr const char* server_setting = "rtc/db/comss/vtxurl/scare_direct";

/// The transport could not even begin a request. what() is the transport's own text.
class http_session_exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One server endpoint as the sender sees it: its address and the last answer. Policy makes the
/// connection, which lasts for one post(). post() and the members belong to one thread; interrupt()
/// may come from any.
template <typename Policy>
class host_http_session {
public:
    /// Only notes the address and the bound of each request; nothing is resolved or connected yet.
    host_http_session(std::string full_url, unsigned int timeout_seconds)
        : url(std::move(full_url)), timeout(timeout_seconds) {
        REPORTER_INFO("host_http_session( url: " << url << ", timeout: " << timeout << " )");
    }

    /// Blocks until the answer is there, the time is up or an interrupt comes. Returns the HTTP
    /// status, the negative libcurl code of a failed transfer, or 0; the answer is in `reply`.
    /// Throws http_session_exception, with `reply` empty, when the transport throws.
    int post(const std::string& body) {
        reply.clear();
        try {
            return Policy::post_impl(url, timeout, body, reply);
        } catch (const std::exception& error) {
            throw http_session_exception(error.what());
        }
    }

    /// Ends the request under way and every later one of the process. Does not wait.
    void interrupt() { Policy::interrupt(); }

    /// Scheme, host, port and path, as the transport gets them.
    const std::string url;
    /// Body of the last answer, any bytes. The owner may move it out.
    std::string reply;
    /// Seconds that one request may take.
    const unsigned int timeout;
};

/// Posts over the HTTPS transport, with a fresh transport session for each request.
struct default_http_session_policy {
    /// HTTP status, negative libcurl code, or 0; `reply` is the answer's body. `timeout` in
    /// seconds. Throws std::domain_error when the request cannot be set up.
    static int post_impl(const std::string& url, unsigned int timeout, const std::string& body,
                         std::string& reply);
    /// One-way, for the whole process. Any thread; not for signal handlers.
    static void interrupt();
};

namespace modules {

/// The sessions in use, by endpoint path. Every access is under get_sessions_mutex(), which the
/// functions below take themselves. Both objects last until the process exits.
std::unordered_map<std::string, std::unique_ptr<host_http_session<default_http_session_policy>>>&
get_sessions();
std::mutex& get_sessions_mutex();

/// The session of `path`, made from the configuration if there is none. Its time-out is kept within
/// 30 to 1800 seconds. The registry owns it; the pointer is valid until remove_http_session(path).
/// Throws what config_helper::get throws, and registers nothing then.
host_http_session<default_http_session_policy>* create_http_session(const config_helper& config,
                                                                    const std::string& path);

/// Destroys the session of `path`, if there is one. Only while no post() of it is under way.
void remove_http_session(const std::string& path);

/// Ends the transfers of all registered sessions, and with them every later one of the process.
/// Without a registered session it does nothing. Any thread; does not wait for a transfer.
void interrupt_all_http_sessions();

}  // namespace modules
}  // namespace reporter
