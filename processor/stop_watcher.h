#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <thread>

namespace reporter {

/// Turns a signal into an orderly stop. The handler only wakes a thread of this class, which does
/// what a handler may not. What hangs then is cut short: a lock that another process holds, a name
/// that does not resolve, a script that loops. The process ends with status 0 once the grace period
/// has passed. That period begins with the request, after the pause under way, or after progress
/// that moved it on (stop_deadline.h), whichever is last. To the store this is a power cut, which
/// its transactions survive.
///
/// One in the life of a process; it belongs to the thread that made it.
class stop_watcher {
public:
    /// `on_stop` is called at the first request, on a thread of its own, and must not throw.
    /// Throws std::system_error when the watcher cannot be set up.
    stop_watcher(std::function<void()> on_stop, std::chrono::milliseconds grace);
    stop_watcher(const stop_watcher&) = delete;
    stop_watcher& operator=(const stop_watcher&) = delete;
    /// Waits for a running `on_stop`, within the grace period. Later requests do nothing.
    ~stop_watcher();

    /// Any thread, and safe in a signal handler once there was a watcher. Requests after the first
    /// do nothing.
    static void request_stop() noexcept;

private:
    /// The watcher's thread; ends with the destructor, or ends the process.
    void watch() const;

    std::function<void()> _on_stop;
    std::chrono::milliseconds _grace;
    /// Set by the destructor: nothing is to be watched any more.
    std::promise<void> _ending;
    std::future<void> _ended;
    std::thread _thread;
};

}  // namespace reporter
