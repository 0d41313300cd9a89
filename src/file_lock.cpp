#include "file_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "logging.h"

namespace {

const std::string lockPath = "/run/user/5001/";

// Taken before the file lock and released after it: lockf tells processes apart, not threads.
std::mutex fileMutex;

// Releasing a mutex that another thread holds is undefined, so each thread knows whether it does.
thread_local bool this_thread_holds_mutex = false;

int create_lock_file(const std::string& path) {
    if (access(path.c_str(), F_OK) == 0) {
        std::remove(path.c_str());
    }
    return creat(path.c_str(), 0666);
}

int open_lock_file(const std::string& path) {
    return open(path.c_str(), O_RDWR | O_CLOEXEC, 0666);
}

}  // namespace

void file_lock::descriptor::reset(int value) {
    if (_value >= 0) {
        ::close(_value);
    }
    _value = value;
}

file_lock::file_lock(const std::string& mode, const std::string& name) : _mode(mode), _name(name) {
    const std::string path = lockPath + _name;
    _descriptor.reset(_mode == "create_only" ? create_lock_file(path) : open_lock_file(path));
    if (_descriptor.get() < 0) {
        throw std::runtime_error("Failed to create or open: " + path);
    }
}

// Kept: the descriptor goes first, so the line "Already unlocked: " closes the life of every lock,
// and one that this thread still holds is released.
file_lock::~file_lock() {
    _descriptor.close();
    unlock();
}

void file_lock::lock() {
    if (this_thread_holds_mutex) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    std::unique_lock<std::mutex> guard(fileMutex);
    if (lockf(_descriptor.get(), F_LOCK, 0) != 0) {
        _descriptor.close();
        guard.unlock();
        throw std::runtime_error("Failed to lock: " + _name);
    }
    REPORTER_INFO("Locked: " << _name);
    guard.release();
    this_thread_holds_mutex = true;
    _owner = std::this_thread::get_id();
}

void file_lock::unlock() {
    // The system would unlock for any thread of the process, and call a lock that is not held
    // unlocked; neither is to be seen outside.
    const bool held = _owner == std::this_thread::get_id();
    const bool released = held && lockf(_descriptor.get(), F_ULOCK, 0) == 0;
    if (held) {
        _owner = std::thread::id();
    }
    REPORTER_INFO((released ? "Unlocked: " : "Already unlocked: ") << _name);
    // Kept: unlocking any file_lock releases the mutex that this thread holds for whichever one.
    if (std::exchange(this_thread_holds_mutex, false)) {
        fileMutex.unlock();
    }
}
