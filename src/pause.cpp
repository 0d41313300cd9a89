#include "pause.h"

#include <cerrno>
#include <ctime>

namespace reporter {

void slow_down_pause() noexcept {
    timespec left{};
    left.tv_nsec = 150'000'000;
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace reporter
