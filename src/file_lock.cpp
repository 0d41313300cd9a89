#include "file_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <system_error>

#include "logging.h"

namespace {

constexpr const char* lockPath = "/run/user/5001/";

// Taken before the file lock and released after it: lockf tells processes apart, not threads.
std::mutex fileMutex;

// The lock for which this thread holds fileMutex; releasing a mutex of another thread is undefined.
thread_local const file_lock* held_by_this_thread = nullptr;

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
    if (held_by_this_thread != nullptr) {
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
    held_by_this_thread = this;
}

void file_lock::unlock() {
    const bool released = held_by_this_thread == this && lockf(_descriptor.get(), F_ULOCK, 0) == 0;
    REPORTER_INFO((released ? "Unlocked: " : "Already unlocked: ") << _name);
    // Kept: unlocking any file_lock releases the mutex that this thread holds for whichever one.
    if (held_by_this_thread != nullptr) {
        held_by_this_thread = nullptr;
        fileMutex.unlock();
    }
}
