#pragma once

#include <string>

#include "doctor/examination.h"

namespace report_tool::doctor {

/// Where requests go, as libcurl takes it from the settings.
struct address {
    bool usable = false;  ///< there is a host to connect to
    bool https = false;   ///< and the agent speaks TLS with its own trust
    std::string url;
    std::string host;
    std::string port;

    std::string proxy_host;  ///< empty without a proxy
    std::string proxy_port;
    bool proxy_http = false;
};

/// Composes the address of an endpoint as the agent does, and tells what is wrong with it.
address examine_address(group& points, const reporter::config_helper& sender);

/// The proxy variables that libcurl would honour for it.
void examine_proxy(group& points, address& server);

}  // namespace report_tool::doctor
