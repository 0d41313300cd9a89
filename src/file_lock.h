#pragma once

#include <atomic>
#include <string>
#include <thread>

/// A named lock between processes, on a lock file under /run/user/5001/. One mutex for all names
/// stands in front of it: in this process at most one thread holds any file_lock.
///
/// Not recursive: a thread that holds one locks no other. The system drops a process's lock on a
/// file as soon as it closes any descriptor of that file, so a process keeps one object per name.
/// To be destroyed unlocked. Works with std::unique_lock.
class file_lock {
public:
    /// `mode` is "create_only", which replaces a lock file left over from earlier, or "open_only",
    /// which needs one. Throws std::runtime_error "Failed to create or open: <path>".
    file_lock(const std::string& mode, const std::string& name);
    file_lock(const file_lock&) = delete;
    file_lock& operator=(const file_lock&) = delete;
    /// Leaves the lock file in its place.
    ~file_lock();

    /// Blocks without limit; only a signal whose handler does not restart system calls breaks the
    /// wait off. Throws std::runtime_error "Failed to lock: <name>"; this object cannot be locked
    /// any more then. Throws std::system_error when this thread holds a file_lock already.
    void lock();

    /// By the thread that holds the lock. By another it changes nothing but the log.
    void unlock();

private:
    /// Owns a file descriptor, -1 when closed.
    class descriptor {
    public:
        descriptor() = default;
        descriptor(const descriptor&) = delete;
        descriptor& operator=(const descriptor&) = delete;
        ~descriptor() { close(); }

        int get() const { return _value; }
        /// Closes what it holds and takes `value` over.
        void reset(int value);
        void close() { reset(-1); }

    private:
        int _value = -1;
    };

    // As the constructor got them.
    std::string _mode;
    std::string _name;
    descriptor _descriptor;
    std::atomic<std::thread::id> _owner{};  ///< thread that holds the lock; none: no thread
};
