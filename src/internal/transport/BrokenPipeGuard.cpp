#include "internal/transport/BrokenPipeGuard.h"

#include <cerrno>
#include <ctime>

namespace tev::transport {

BrokenPipeGuard::BrokenPipeGuard() noexcept {
    sigset_t pending;
    sigpending(&pending);
    pendingBefore = sigismember(&pending, SIGPIPE) == 1;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &previousMask);
}

BrokenPipeGuard::~BrokenPipeGuard() {
    // One that was raised meanwhile is taken back; one from before stays somebody else's.
    if (!pendingBefore) {
        const timespec noWait{};
        while (sigtimedwait(&brokenPipe, nullptr, &noWait) == -1 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
}

}  // namespace tev::transport
