#include "pause.h"

#include <atomic>
#include <cerrno>
#include <ctime>

namespace reporter {

namespace {

using clock = std::chrono::steady_clock;

std::atomic<clock::duration> last_end{clock::duration::zero()};

}  // namespace

std::chrono::steady_clock::time_point last_pause_end() noexcept {
    return clock::time_point(last_end);
}

void slow_down_pause() noexcept {
    last_end = (clock::now() + pause_length).time_since_epoch();
    timespec left{};
    left.tv_nsec = std::chrono::nanoseconds(pause_length).count();
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace reporter
