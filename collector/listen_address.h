#pragma once

#include <string>

namespace collector {

/// Where a server listens: "unix:PATH", "PORT" or "HOST:PORT", HOST a numeric address. Without HOST
/// it is the loopback; port 0 is a free one.
class listen_address {
public:
    /// Throws std::invalid_argument.
    explicit listen_address(const std::string& text);

    /// Whether only this machine can reach it.
    bool is_local() const;

    /// A socket that takes connections. A path of an earlier process that nobody listens at any
    /// more is taken over. The caller closes it. Throws std::system_error.
    int open() const;

private:
    std::string _path;  ///< empty: TCP
    std::string _host;
    std::string _port;
};

/// "HOST:PORT" or "unix:PATH" of a socket that listens, as listen_address takes it.
std::string address_of(int socket);

}  // namespace collector
