#include "http_session.h"

#include <algorithm>
#include <cstdlib>

#include <vconf.h>

#include "configuration.h"
#include "internal/transport/HttpSession.h"
#include "logging.h"

namespace reporter {
namespace {

constexpr unsigned int min_timeout_seconds = 30;
constexpr unsigned int max_timeout_seconds = 1800;

std::string read_server_setting() {
    const std::unique_ptr<char, decltype(&std::free)> value(vconf_get_str(server_setting),
                                                            std::free);
    return value != nullptr ? value.get() : "";
}

}  // namespace

int default_http_session_policy::post_impl(const std::string& url, unsigned int timeout,
                                           const std::string& body, std::string& reply) {
    tev::transport::HttpSession session(url, static_cast<long>(timeout));
    const int status = session.post(body);
    REPORTER_INFO("replySize: " << session.getReplySize());
    reply.assign(reinterpret_cast<const char*>(session.getReply()), session.getReplySize());
    return status;
}

void default_http_session_policy::interrupt() {
    tev::transport::setInterruptSignal();
}

namespace modules {

std::unordered_map<std::string, std::unique_ptr<host_http_session<default_http_session_policy>>>&
get_sessions() {
    static std::unordered_map<std::string,
                              std::unique_ptr<host_http_session<default_http_session_policy>>>
        sessions;
    return sessions;
}

std::mutex& get_sessions_mutex() {
    static std::mutex mutex;
    return mutex;
}

host_http_session<default_http_session_policy>* create_http_session(const config_helper& config,
                                                                    const std::string& path) {
    const std::lock_guard<std::mutex> lock(get_sessions_mutex());
    auto& sessions = get_sessions();
    const auto found = sessions.find(path);
    if (found != sessions.end()) {
        return found->second.get();
    }
    std::string server;
    if (!config.get<bool>("vxt_service")) {
        server = config.get<std::string>("server_url");
        REPORTER_INFO("VTX flag is false, server url from config" << server);
    } else if (server = read_server_setting(); !server.empty()) {
        REPORTER_INFO("Server url: " << server);
    } else {
        server = config.get<std::string>("server_url");
        REPORTER_INFO("Server domain from vconf is null, server url from config" << server);
    }
    const std::string url = server + ":" + config.get<std::string>("server_port") + "/" + path;
    const unsigned int timeout = std::clamp(config.get<unsigned int>("sending_timeout"),
                                            min_timeout_seconds, max_timeout_seconds);
    auto session = std::make_unique<host_http_session<default_http_session_policy>>(url, timeout);
    return sessions.emplace(path, std::move(session)).first->second.get();
}

void remove_http_session(const std::string& path) {
    const std::lock_guard<std::mutex> lock(get_sessions_mutex());
    get_sessions().erase(path);
}

void interrupt_all_http_sessions() {
    const std::lock_guard<std::mutex> lock(get_sessions_mutex());
    for (const auto& entry : get_sessions()) {
        entry.second->interrupt();
    }
}

}  // namespace modules
}  // namespace reporter
