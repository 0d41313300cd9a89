#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace report_tool::doctor {

/// When all that has to do with the network has to be over.
class deadline {
public:
    explicit deadline(unsigned int seconds)
        : _end(std::chrono::steady_clock::now() + std::chrono::seconds(seconds)) {}

    /// Not below 0.
    int milliseconds_left() const;
    /// At least 1.
    unsigned int seconds_left() const;
    /// Whether the descriptor is ready for the poll events in time, and within so many
    /// milliseconds.
    bool wait_for(int descriptor, short events, int at_most_ms = -1) const;

private:
    std::chrono::steady_clock::time_point _end;
};

/// Owns a socket, -1 when closed.
class socket_handle {
public:
    explicit socket_handle(int descriptor = -1) : _descriptor(descriptor) {}
    socket_handle(socket_handle&& other) noexcept
        : _descriptor(std::exchange(other._descriptor, -1)) {}
    socket_handle(const socket_handle&) = delete;
    socket_handle& operator=(const socket_handle&) = delete;
    socket_handle& operator=(socket_handle&&) = delete;
    ~socket_handle();
    int get() const { return _descriptor; }

private:
    int _descriptor;
};

/// Addresses of the host as texts. Throws failure.
std::vector<std::string> resolve(const std::string& host, const deadline& end);

/// The first of the addresses that takes a connection; non-blocking. Throws failure.
socket_handle connect_to(const std::vector<std::string>& addresses, const std::string& port,
                         const deadline& end);

/// Asks an HTTP proxy to let the connection through. Throws failure.
void pass_proxy(int socket, const std::string& host_and_port, const deadline& end);

}  // namespace report_tool::doctor
