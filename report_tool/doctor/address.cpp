#include "doctor/address.h"

#include <strings.h>

#include <cstdlib>

#include <memory>
#include <sstream>

#include <curl/curl.h>

#include "http_session.h"

namespace report_tool::doctor {
namespace {

using url_handle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

// As libcurl reads it; without a handle when it cannot be read.
url_handle parse(const std::string& url) {
    url_handle parsed(curl_url(), curl_url_cleanup);
    if (parsed != nullptr &&
        curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), CURLU_GUESS_SCHEME) != CURLUE_OK) {
        parsed.reset();
    }
    return parsed;
}

std::string part_of(const url_handle& url, CURLUPart part) {
    char* text = nullptr;
    if (curl_url_get(url.get(), part, &text, part == CURLUPART_PORT ? CURLU_DEFAULT_PORT : 0) !=
        CURLUE_OK) {
        return "";
    }
    std::string copy = text;
    curl_free(text);
    return copy;
}

std::string without_brackets(const std::string& host) {
    return host.size() > 2 && host[0] == '[' ? host.substr(1, host.size() - 2) : host;
}

bool begins_with(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

void examine_scheme(group& points, address& server, const std::string& scheme) {
    if (begins_with(server.url, "https://")) {
        server.https = true;
    } else if (strncasecmp(server.url.c_str(), "https://", 8) == 0) {
        points.fault("url", "capitals",
                     server.url +
                         ": the agent knows https:// in small letters only, and uses neither the "
                         "device's authorities nor its certificate",
                     "write https:// in small letters");
    } else if (scheme == "http") {
        points.fault("url", "unencrypted", server.url + ": reports go out in the clear",
                     "write https://");
    } else {
        points.fault("url", "scheme", server.url + " is no https:// address",
                     "write https:// and the host's name");
    }
}

// First of the variables that is set.
std::string variable(std::initializer_list<const char*> names, std::string& found) {
    for (const char* name : names) {
        // There is one thread only. NOLINTNEXTLINE(concurrency-mt-unsafe)
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            found = name;
            return value;
        }
    }
    return "";
}

// As libcurl compares: whole names, and names below them.
bool is_exempt(const std::string& host, const std::string& list) {
    std::istringstream entries(list);
    for (std::string entry; std::getline(entries, entry, ',');) {
        entry.erase(0, entry.find_first_not_of(" ."));
        entry.erase(entry.find_last_not_of(' ') + 1);
        const bool longer = host.size() > entry.size();
        if (entry == "*" || host == entry ||
            (!entry.empty() && longer && host[host.size() - entry.size() - 1] == '.' &&
             host.compare(host.size() - entry.size(), entry.size(), entry) == 0)) {
            return true;
        }
    }
    return false;
}

}  // namespace

address examine_address(group& points, const reporter::config_helper& sender) {
    address server;
    const std::string path = sender.get<std::string>("reports_path", "reports");
    const std::string port = sender.get<std::string>("server_port");
    server.url = reporter::modules::create_http_session(sender, path)->url;
    const url_handle parsed = parse(server.url);
    const std::string own = server.url.substr(0, server.url.rfind(":" + port + "/"));
    const auto scheme = own.find("://");
    const auto host = scheme == std::string::npos ? 0 : scheme + 3;
    if (own.find('/', host) != std::string::npos) {
        points.fault("url", "slash",
                     server.url + ": the port is behind a slash, and so part of the path",
                     "remove the slash at the end of server_url, and any path");
        return server;
    }
    if (parsed == nullptr || part_of(parsed, CURLUPART_PORT) != port) {
        const bool colon = own.find(':', host) != std::string::npos && own[host] != '[';
        points.fault("url", colon ? "port" : "unusable",
                     server.url + " is no address with port " + port,
                     colon ? "leave the port to server_port"
                           : "write https:// and the host's name, and a number for the port");
        return server;
    }
    server.usable = true;
    server.host = without_brackets(part_of(parsed, CURLUPART_HOST));
    server.port = port;
    examine_scheme(points, server, part_of(parsed, CURLUPART_SCHEME));
    if (server.https) {
        points.ok("url", server.url);
    }
    return server;
}

void examine_proxy(group& points, address& server) {
    std::string name, exempt_name;
    const std::string proxy =
        variable({server.https ? "https_proxy" : "http_proxy",
                  server.https ? "HTTPS_PROXY" : "http_proxy", "all_proxy", "ALL_PROXY"},
                 name);
    const std::string exempt = variable({"no_proxy", "NO_PROXY"}, exempt_name);
    if (proxy.empty() || is_exempt(server.host, exempt)) {
        points.ok("proxy", proxy.empty()
                               ? "no variable sets one"
                               : name + " is set, and " + exempt_name + " exempts " + server.host);
        return;
    }
    const url_handle parsed = parse(proxy);
    if (parsed == nullptr) {
        points.fault("proxy", "unusable", name + " names no proxy", "mend or unset it");
        server.usable = false;
        return;
    }
    server.proxy_host = without_brackets(part_of(parsed, CURLUPART_HOST));
    // libcurl's own default for a proxy.
    char* port = nullptr;
    const bool given = curl_url_get(parsed.get(), CURLUPART_PORT, &port, 0) == CURLUE_OK;
    server.proxy_port = given ? port : "1080";
    curl_free(port);
    server.proxy_http = part_of(parsed, CURLUPART_SCHEME) == "http";
    points.warning("proxy", "proxy",
                   name + " sends all through " + server.proxy_host + " port " + server.proxy_port,
                   "what counts is the environment of the agent's service: look whether it is so "
                   "there");
}

}  // namespace report_tool::doctor
