#include "pause.h"

#include <cerrno>
#include <ctime>

namespace reporter {

void slow_down_pause() noexcept {
    timespec left{};
    left.tv_nsec = std::chrono::nanoseconds(pause_length).count();
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace reporter
