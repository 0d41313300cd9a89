#include "internal/transport/InterruptibleSockets.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

namespace tev::transport {
namespace {

// A shutdown does not reach a socket that has yet to be told to connect. A dead socket under the
// same number makes that connect fail.
void makeUnusable(curl_socket_t socket) noexcept {
    if (shutdown(socket, SHUT_RDWR) == 0 || errno != ENOTCONN) {
        return;
    }
    const int dead = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (dead >= 0) {
        dup3(dead, socket, O_CLOEXEC);
        ::close(dead);
    }
}

}  // namespace

InterruptibleSockets& InterruptibleSockets::getInst() {
    static InterruptibleSockets instance;
    return instance;
}

curl_socket_t InterruptibleSockets::open(const curl_sockaddr& address) noexcept {
    const curl_socket_t socket =
        ::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
    if (socket < 0) {
        return CURL_SOCKET_BAD;
    }
    if (!keep(socket)) {
        ::close(socket);
        return CURL_SOCKET_BAD;
    }
    return socket;
}

// One step under the mutex, so that a socket is either refused here or seen by the interrupt.
bool InterruptibleSockets::keep(curl_socket_t socket) noexcept {
    try {
        const std::lock_guard<std::mutex> lock(mutex);
        if (interrupted) {
            return false;
        }
        live.insert(socket);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

int InterruptibleSockets::close(curl_socket_t socket) noexcept {
    {
        // Before the number is free again, or an interrupt could hit another file.
        const std::lock_guard<std::mutex> lock(mutex);
        live.erase(socket);
    }
    return ::close(socket);
}

void InterruptibleSockets::interrupt() noexcept {
    const std::lock_guard<std::mutex> lock(mutex);
    interrupted = true;
    for (const curl_socket_t socket : live) {
        makeUnusable(socket);
    }
}

bool InterruptibleSockets::isInterrupted() noexcept {
    const std::lock_guard<std::mutex> lock(mutex);
    return interrupted;
}

curl_socket_t InterruptibleSockets::openSocketCallback(void* /*client*/, curlsocktype /*purpose*/,
                                                       curl_sockaddr* address) noexcept {
    return getInst().open(*address);
}

int InterruptibleSockets::closeSocketCallback(void* /*client*/, curl_socket_t socket) noexcept {
    return getInst().close(socket);
}

// A non-zero answer ends the transfer before a name server is asked.
int InterruptibleSockets::resolverStartCallback(void* /*resolver*/, void* /*reserved*/,
                                                void* /*client*/) noexcept {
    return getInst().isInterrupted() ? 1 : 0;
}

}  // namespace tev::transport
