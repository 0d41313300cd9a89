#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace reporter {

/// Turns a signal into an orderly stop: the handler only leaves word, and a thread of this class
/// does what a handler may not. Should the process not end by itself within the grace period after
/// the pause under way (a lock that another process holds, a name that does not resolve, a script
/// that loops), it ends it with status 0; the store's transactions make that as safe as a power
/// cut.
///
/// One object at a time; it belongs to the thread that made it.
class stop_watcher {
public:
    /// `on_stop` is called at the first request, on a thread of its own, and must not throw.
    /// Throws std::system_error when the watcher cannot be set up.
    stop_watcher(std::function<void()> on_stop, std::chrono::milliseconds grace);
    stop_watcher(const stop_watcher&) = delete;
    stop_watcher& operator=(const stop_watcher&) = delete;
    /// Waits for a running `on_stop`. Later requests do nothing.
    ~stop_watcher();

    /// Safe in a signal handler. Requests after the first do nothing.
    static void request_stop() noexcept;

private:
    void watch() const;

    std::function<void()> _on_stop;
    std::chrono::milliseconds _grace;
    std::thread _thread;
};

}  // namespace reporter
