#include "doctor/connection.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <algorithm>
#include <memory>
#include <sstream>

#include "child.h"
#include "failure.h"
#include "output.h"

namespace report_tool::doctor {
namespace {

using address_list = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

address_list look_up(const std::string& host, const char* port, int flags, int& error) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* found = nullptr;
    error = getaddrinfo(host.c_str(), port, &hints, &found);
    return {error == 0 ? found : nullptr, freeaddrinfo};
}

// One address a line, or a line that begins with "!" and says what is wrong.
std::string resolved(const std::string& host) {
    int error = 0;
    const address_list found = look_up(host, nullptr, 0, error);
    std::string text = error == 0 ? "" : std::string("!") + gai_strerror(error);
    for (const addrinfo* one = found.get(); one != nullptr; one = one->ai_next) {
        char name[NI_MAXHOST];
        if (getnameinfo(one->ai_addr, one->ai_addrlen, name, sizeof name, nullptr, 0,
                        NI_NUMERICHOST) == 0) {
            text += std::string(name) + "\n";
        }
    }
    return text;
}

failure refusal_by(const std::string& address, const std::string& port, int error) {
    const std::string cause = error == ECONNREFUSED ? "refused"
                              : error == ETIMEDOUT  ? "silent"
                                                    : "unreachable";
    return {cause, address + " port " + port + ": " + error_text(error)};
}

int begin_connection(const socket_handle& socket, const addrinfo& address) {
    return ::connect(socket.get(), address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
}

int finish_connection(int socket, const deadline& end, int at_most_ms) {
    if (!end.wait_for(socket, POLLOUT, at_most_ms)) {
        return ETIMEDOUT;
    }
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

}  // namespace

int deadline::milliseconds_left() const {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        _end - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

unsigned int deadline::seconds_left() const {
    return static_cast<unsigned int>(milliseconds_left()) / 1000 + 1;
}

bool deadline::wait_for(int descriptor, short events, int at_most_ms) const {
    pollfd waited{descriptor, events, 0};
    const int left = milliseconds_left();
    int ready = 0;
    do {
        ready = poll(&waited, 1, at_most_ms < 0 ? left : std::min(left, at_most_ms));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

socket_handle::~socket_handle() {
    if (_descriptor >= 0) {
        close(_descriptor);
    }
}

std::vector<std::string> resolve(const std::string& host, const deadline& end) {
    // The resolver has time-outs of its own, which are longer.
    const child_answer answer = in_child(end.seconds_left(), [&] { return resolved(host); });
    if (answer.how != child_answer::end::returned) {
        throw failure("silent", "no name server answers for " + host);
    }
    if (answer.text.empty() || answer.text[0] == '!') {
        throw failure("unknown", host + ": " + answer.text.substr(answer.text.empty() ? 0 : 1));
    }
    std::vector<std::string> addresses;
    std::istringstream lines(answer.text);
    for (std::string line; std::getline(lines, line);) {
        addresses.push_back(line);
    }
    return addresses;
}

socket_handle connect_to(const std::vector<std::string>& addresses, const std::string& port,
                         const deadline& end) {
    failure last("unreachable", "no address");
    auto untried = static_cast<int>(addresses.size());
    for (const std::string& address : addresses) {
        // One that is silent leaves the others their share: libcurl does not wait for it either.
        const int share_ms = end.milliseconds_left() / untried--;
        int error = 0;
        const address_list found =
            look_up(address, port.c_str(), AI_NUMERICHOST | AI_NUMERICSERV, error);
        if (found == nullptr) {
            last = failure("port", port + " is no port");
            continue;
        }
        socket_handle socket(
            ::socket(found->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        error = begin_connection(socket, *found);
        if (error == EINPROGRESS) {
            error = finish_connection(socket.get(), end, share_ms);
        }
        if (error == 0) {
            return socket;
        }
        last = refusal_by(address, port, error);
    }
    throw last;
}

void pass_proxy(int socket, const std::string& host_and_port, const deadline& end) {
    const std::string request =
        "CONNECT " + host_and_port + " HTTP/1.1\r\nHost: " + host_and_port + "\r\n\r\n";
    std::string answer;
    char byte = 0;
    bool open = send(socket, request.data(), request.size(), MSG_NOSIGNAL) ==
                static_cast<ssize_t>(request.size());
    // Byte by byte: what follows the head is the server's.
    while (open && answer.find("\r\n\r\n") == std::string::npos && answer.size() < 8192) {
        open = end.wait_for(socket, POLLIN) && recv(socket, &byte, 1, 0) == 1;
        answer.append(open ? 1 : 0, byte);
    }
    if (answer.compare(0, 7, "HTTP/1.") != 0 || answer.find(" 2") != 8) {
        throw failure("proxy",
                      "the proxy lets nothing through: " + answer.substr(0, answer.find('\r')));
    }
}

}  // namespace report_tool::doctor
