#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/device_root.h"

namespace test_support {

/// Runs `work` in `count` child processes at once; true when it gave true in each of them.
template <class Work>
bool in_children(int count, Work work) {
    for (int i = 0; i < count; ++i) {
        if (fork() == 0) {
            _exit(work() ? 0 : 1);
        }
    }
    int succeeded = 0;
    for (int status = 0; wait(&status) > 0;) {
        succeeded += status == 0 ? 1 : 0;
    }
    return succeeded == count;
}

/// Whether another process could take the named lock now.
inline bool lock_is_free(const std::string& name) {
    return in_children(1, [path = lock_dir() / name] {
        return lockf(open(path.c_str(), O_RDWR | O_CLOEXEC), F_TEST, 0) == 0;
    });
}

}  // namespace test_support
