#include "listen_address.h"

#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace collector {
namespace {

using address_list = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

const std::string LOOPBACK = "127.0.0.1";
const std::string UNIX = "unix:";

[[noreturn]] void fail(const std::string& where) {
    throw std::system_error(errno, std::generic_category(), "cannot listen at " + where);
}

address_list find(const std::string& host, const std::string& port) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
        throw std::invalid_argument("\"" + host + ":" + port + "\" is no address to listen at");
    }
    return {found, &freeaddrinfo};
}

sockaddr_un unix_address(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        throw std::invalid_argument("a socket's path has 1 to " +
                                    std::to_string(sizeof address.sun_path - 1) + " bytes");
    }
    std::copy(path.begin(), path.end(), address.sun_path);
    return address;
}

/// Closes the socket where it cannot listen. Without SO_REUSEPORT no two servers share a port
/// unnoticed.
int listening(int socket, const sockaddr* address, socklen_t size, const std::string& where) {
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (bind(socket, address, size) == 0 && listen(socket, SOMAXCONN) == 0) {
        return socket;
    }
    const int fault = errno;
    close(socket);
    errno = fault;
    fail(where);
}

/// Whether the path is a socket at which nobody takes connections.
bool is_left_over(const sockaddr_un& address) {
    struct stat file {};
    if (stat(address.sun_path, &file) != 0 || !S_ISSOCK(file.st_mode)) {
        return false;
    }
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool served =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return !served;
}

}  // namespace

listen_address::listen_address(const std::string& text) {
    if (text.compare(0, UNIX.size(), UNIX) == 0) {
        _path = text.substr(UNIX.size());
        unix_address(_path);
        return;
    }
    const std::size_t colon = text.rfind(':');
    _host = colon == std::string::npos ? LOOPBACK : text.substr(0, colon);
    _port = colon == std::string::npos ? text : text.substr(colon + 1);
    find(_host, _port);
}

bool listen_address::is_local() const {
    return !_path.empty() || _host == LOOPBACK || _host == "::1";
}

int listen_address::open() const {
    if (_path.empty()) {
        const address_list found = find(_host, _port);
        const int made = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        return listening(made, found->ai_addr, found->ai_addrlen, _host + ":" + _port);
    }
    const sockaddr_un address = unix_address(_path);
    if (is_left_over(address)) {
        unlink(_path.c_str());
    }
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    return listening(made, reinterpret_cast<const sockaddr*>(&address), sizeof address, _path);
}

std::string address_of(int socket) {
    sockaddr_storage bound{};
    socklen_t size = sizeof bound;
    auto* const address = reinterpret_cast<sockaddr*>(&bound);
    if (getsockname(socket, address, &size) == 0 && bound.ss_family == AF_UNIX) {
        return UNIX + reinterpret_cast<const sockaddr_un*>(address)->sun_path;
    }
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    getnameinfo(address, size, host.data(), host.size(), port.data(), port.size(),
                NI_NUMERICHOST | NI_NUMERICSERV);
    return std::string(host.data()) + ":" + port.data();
}

}  // namespace collector
