#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "support/device_root.h"

namespace test_support {

/// Runs `work` in `count` child processes at once; true when it gave true in each of them.
template <class Work>
bool in_children(int count, Work work) {
    std::vector<pid_t> children(static_cast<std::size_t>(count));
    for (pid_t& child : children) {
        child = fork();
        if (child == 0) {
            _exit(work() ? 0 : 1);
        }
    }
    return std::count_if(children.begin(), children.end(), [](pid_t child) {
               int status = 0;
               return waitpid(child, &status, 0) == child && status == 0;
           }) == count;
}

/// Whether another process could take the named lock now.
inline bool lock_is_free(const std::string& name) {
    return in_children(1, [path = lock_dir() / name] {
        return lockf(open(path.c_str(), O_RDWR | O_CLOEXEC), F_TEST, 0) == 0;
    });
}

}  // namespace test_support
