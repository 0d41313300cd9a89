#pragma once

#include <sys/resource.h>

#include <csignal>

namespace test_support {

/// While it lives, no file of this process grows beyond `bytes`, as if the disk were full then.
class full_disk {
public:
    explicit full_disk(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &_before);
        const rlimit small{bytes, _before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
    }
    full_disk(const full_disk&) = delete;
    full_disk& operator=(const full_disk&) = delete;
    ~full_disk() { setrlimit(RLIMIT_FSIZE, &_before); }

private:
    rlimit _before{};
};

}  // namespace test_support
