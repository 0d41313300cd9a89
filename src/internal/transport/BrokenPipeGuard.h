#pragma once

#include <csignal>

namespace tev::transport {

/// Keeps SIGPIPE from ending the process while it lives: a TLS write to a connection that the peer
/// or an interrupt has closed may raise it, and libcurl, told to leave signals alone, does not
/// ignore it. Works on the calling thread only; must be destroyed there. Never throws.
class BrokenPipeGuard {
public:
    BrokenPipeGuard() noexcept;
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;
    ~BrokenPipeGuard();

private:
    sigset_t brokenPipe{};
    sigset_t previousMask{};
    bool pendingBefore = false;
};

}  // namespace tev::transport
