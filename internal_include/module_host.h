#pragma once

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "logging.h"

namespace reporter::modules {

/// Runs one long-lived piece of work on a thread of its own. The policy supplies run_impl(), which
/// does the work, and stop(), which may come from another thread and makes run_impl() return soon.
///
/// run(), wait() and the destructor belong to the owner's thread; stop() may come from any.
template <class Policy>
class module_host {
public:
    /// Takes the policy over. `name` stands in the log. Nothing runs yet.
    module_host(Policy policy, std::string name)
        : _policy(std::move(policy)), _name(std::move(name)) {
        // Kept: the log says "are".
        REPORTER_INFO("module[" << _name << "] are constructed");
    }
    module_host(const module_host&) = delete;
    module_host& operator=(const module_host&) = delete;

    /// Stops the work and waits for it, however long it takes to end.
    ~module_host() {
        stop();
        wait();
        REPORTER_INFO("~modules_host: " << _name);
    }

    /// Starts the thread unless it is running. An exception out of the work is logged and ends it.
    /// Throws std::system_error when no thread can be made.
    void run() {
        REPORTER_INFO("module_host::run module[" << _name << "]");
        if (_thread.joinable()) {
            REPORTER_INFO("module already started");
            return;
        }
        _thread = std::thread([this] {
            try {
                REPORTER_INFO("before 'run_impl' module[" << _name << "]");
                _policy.run_impl();
                REPORTER_INFO("after 'run_impl' module[" << _name << "]");
            } catch (const std::exception& error) {
                REPORTER_ERROR("fatal error in module[" << _name << "]: " << error.what());
            }
            if (_stopped) {
                // Kept: nobody waits on it today.
                const std::lock_guard<std::mutex> locked(_mutex);
                _ended.notify_one();
            }
        });
        _joinable = true;
    }

    /// Blocks until the work has ended. Returns at once when none was started.
    void wait() {
        REPORTER_INFO("module_host::wait module: " << _name);
        REPORTER_INFO("joinable?= " << _joinable << " " << _name);
        if (_thread.joinable()) {
            _thread.join();
            _joinable = false;
        }
        REPORTER_INFO("waited  " << _name);
    }

    /// Asks the work to end, once; does not wait for it. A second call only waits for the first. An
    /// exception out of the policy's stop() is logged, and the work counts as stopped all the same.
    void stop() {
        const std::lock_guard<std::mutex> locked(_mutex);
        if (_stopped) {
            REPORTER_INFO("module [" << _name << "] already stopped");
            return;
        }
        REPORTER_INFO("stopping module: " << _name);
        _stopped = true;
        try {
            _policy.stop();
            REPORTER_INFO("joinable?= " << _joinable << " " << _name);
        } catch (const std::exception& error) {
            REPORTER_ERROR(error.what());
        }
    }

private:
    /// Used by its own thread and, in stop(), by another.
    Policy _policy;
    /// The owner's alone.
    std::thread _thread;
    /// True from the first stop() on; never taken back.
    std::atomic<bool> _stopped{false};
    /// Held by stop() and for the last notification.
    std::mutex _mutex;
    /// Notified once, when work that was stopped has ended.
    std::condition_variable _ended;
    /// Only for the log.
    std::string _name;
    /// Stands in for joinable(), which stop() may not ask while wait() joins the thread.
    std::atomic<bool> _joinable{false};
};

}  // namespace reporter::modules
