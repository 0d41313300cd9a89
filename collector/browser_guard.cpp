#include "browser_guard.h"

#include <arpa/inet.h>

#include <array>
#include <string>

namespace collector {
namespace {

constexpr int FORBIDDEN = 403;

constexpr const char* CONTENT_POLICY =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; base-uri 'none'; "
    "form-action 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'; trusted-types "
    "'none'";

/// Without the port and the brackets of IPv6.
std::string name_of(const std::string& host) {
    const std::size_t colon = host.rfind(':');
    const bool has_port = colon != std::string::npos && host.find(']', colon) == std::string::npos;
    const std::string name = has_port ? host.substr(0, colon) : host;
    const bool in_brackets = name.size() > 2 && name.front() == '[' && name.back() == ']';
    return in_brackets ? name.substr(1, name.size() - 2) : name;
}

/// A name that another site owns may lead to this server at its pleasure. An address cannot.
bool is_own_host(const std::string& host) {
    const std::string name = name_of(host);
    std::array<unsigned char, sizeof(in6_addr)> address{};
    return name == "localhost" || inet_pton(AF_INET, name.c_str(), address.data()) == 1 ||
           inet_pton(AF_INET6, name.c_str(), address.data()) == 1;
}

bool is_from_other_site(const httplib::Request& request) {
    const std::string host = request.get_header_value("Host");
    return !is_own_host(host) ||
           (request.has_header("Origin") && request.get_header_value("Origin") != "http://" + host);
}

}  // namespace

void guard_against_other_sites(httplib::Server& server) {
    server.set_default_headers({{"Content-Security-Policy", CONTENT_POLICY},
                                {"Cross-Origin-Resource-Policy", "same-origin"},
                                {"X-Content-Type-Options", "nosniff"},
                                {"Referrer-Policy", "no-referrer"},
                                {"Cache-Control", "no-store"}});
    server.set_pre_routing_handler(
        [](const httplib::Request& request, httplib::Response& response) {
            const bool is_open = request.path == "/health" || request.path == "/metrics";
            if (is_open || !is_from_other_site(request)) {
                return httplib::Server::HandlerResponse::Unhandled;
            }
            response.status = FORBIDDEN;
            response.set_content("Only by this server's address, and not from another site.\n",
                                 "text/plain");
            return httplib::Server::HandlerResponse::Handled;
        });
}

}  // namespace collector
