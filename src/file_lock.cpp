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

// lockf tells processes apart, not threads. So this is taken before the file lock and released
// after.
std::mutex fileMutex;

// Each thread knows whether it holds the mutex, as releasing another thread's is undefined.
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

// Kept: the descriptor goes first. So every lock ends with the line "Already unlocked: ", and one
// that this thread still holds is released.
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
    // Only the holder unlocks. lockf would do so for any thread of the process, and succeeds where
    // nothing is held.
    const bool held = _owner == std::this_thread::get_id();
    const bool released = held && lockf(_descriptor.get(), F_ULOCK, 0) == 0;
    if (held) {
        _owner = std::thread::id();
    }
    REPORTER_INFO((released ? "Unlocked: " : "Already unlocked: ") << _name);
    // Kept: unlocking any file_lock releases the mutex, whichever lock this thread took it for.
    if (std::exchange(this_thread_holds_mutex, false)) {
        fileMutex.unlock();
    }
}
