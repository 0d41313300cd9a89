#include "lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <chrono>
#include <fstream>
#include <thread>

#include "failure.h"
#include "output.h"

namespace report_tool {
namespace {

// Five seconds.
constexpr int tries = 250;
constexpr std::chrono::milliseconds between_tries{20};

std::string describe(pid_t process) {
    std::string name;
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::getline(file, name);
    // Of another pid namespace, or of an open file, which has no process.
    const std::string known = process > 0 ? "process " + std::to_string(process) : "some process";
    return name.empty() ? known : known + " (" + name + ")";
}

std::string holder_of(int descriptor) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(descriptor, F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) {
        return "";
    }
    return describe(lock.l_pid);
}

}  // namespace

std::string holder_of(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return "";
    }
    std::string holder = holder_of(descriptor);
    for (int tried = 0; !holder.empty() && tried < tries; ++tried) {
        std::this_thread::sleep_for(between_tries);
        holder = holder_of(descriptor);
    }
    close(descriptor);
    return holder;
}

held_lock::held_lock(const std::string& name)
    : _descriptor(open((lock_dir + name).c_str(), O_RDWR | O_CLOEXEC)) {
    const std::string path = lock_dir + name;
    if (_descriptor < 0) {
        throw failure(errno == ENOENT ? "missing" : "access", path + ": " + error_text(errno));
    }
    for (int tried = 0; lockf(_descriptor, F_TLOCK, 0) != 0; ++tried) {
        if (tried == tries) {
            std::string text = path + " is held by ";
            text += holder_of(_descriptor);
            close(_descriptor);
            throw failure("held", text);
        }
        std::this_thread::sleep_for(between_tries);
    }
}

// A command that takes the lock again at once would leave no turn to a pass that waits for it.
held_lock::~held_lock() {
    close(_descriptor);
    std::this_thread::sleep_for(between_tries);
}

}  // namespace report_tool
