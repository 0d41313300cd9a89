#pragma once

#include <mutex>
#include <set>

#include <curl/curl.h>

namespace tev::transport {

/// The sockets that libcurl has open for any session. With them an interrupt from another thread
/// ends a wait for the server at once; the transfer callbacks see an interrupt only when data
/// moves. The interrupt is one-way: afterwards nothing is resolved or connected in this process.
/// Any thread; no member throws. Not for signal handlers.
class InterruptibleSockets {
public:
    /// The process-wide instance.
    static InterruptibleSockets& getInst();

    /// A new close-on-exec socket that libcurl owns until it calls close(), or CURL_SOCKET_BAD when
    /// none can be made or after an interrupt.
    curl_socket_t open(const curl_sockaddr& address) noexcept;
    /// Forgets the socket and answers as close(2).
    int close(curl_socket_t socket) noexcept;
    /// Ends what every live socket waits for: connecting, reading and writing fail from here on.
    /// Descriptors stay open for libcurl to close.
    void interrupt() noexcept;
    /// Whether there was an interrupt.
    bool isInterrupted() noexcept;

    /// libcurl's callbacks on the process-wide instance.
    static curl_socket_t openSocketCallback(void* client, curlsocktype purpose,
                                            curl_sockaddr* address) noexcept;
    static int closeSocketCallback(void* client, curl_socket_t socket) noexcept;
    static int resolverStartCallback(void* resolver, void* reserved, void* client) noexcept;

private:
    /// False after an interrupt or without memory; the socket is then not kept.
    bool keep(curl_socket_t socket) noexcept;

    std::mutex mutex;  ///< guards what follows
    std::set<curl_socket_t> live;
    bool interrupted = false;
};

}  // namespace tev::transport
