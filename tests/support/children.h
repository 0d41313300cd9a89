#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <string>

#include "support/device_root.h"

namespace test_support {

/// Runs `work` in `count` child processes at once; true when it gave true in each of them.
template <class Work>
bool in_children(int count, Work work) {
    int forked = 0;
    while (forked < count) {
        const pid_t child = fork();
        if (child == 0) {
            try {
                _exit(work() ? 0 : 1);
            } catch (const std::exception&) {
                _exit(2);
            }
        }
        forked += child > 0 ? 1 : count;
    }
    bool all = forked == count;
    for (int status = 0; wait(&status) > 0;) {
        all = all && status == 0;
    }
    return all;
}

/// Whether another process could take the named lock now.
inline bool lock_is_free(const std::string& name) {
    return in_children(1, [path = lock_dir() / name] {
        return lockf(open(path.c_str(), O_RDWR | O_CLOEXEC), F_TEST, 0) == 0;
    });
}

}  // namespace test_support
