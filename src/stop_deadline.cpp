#include "stop_deadline.h"

#include <atomic>

namespace reporter {
namespace {

using clock = std::chrono::steady_clock;

constexpr std::chrono::seconds settling_step{5};

std::atomic<bool> regarded{true};
std::atomic<std::chrono::seconds> step{std::chrono::seconds::zero()};
std::atomic<clock::duration> begin{clock::duration::zero()};

}  // namespace

settling::settling() noexcept {
    step = settling_step;
    note_progress();
}

settling::~settling() {
    step = std::chrono::seconds::zero();
    note_progress();
}

void note_progress() noexcept {
    if (regarded) {
        begin = (clock::now() + step.load()).time_since_epoch();
    }
}

void disregard_progress() noexcept {
    regarded = false;
}

clock::time_point grace_begin() noexcept {
    return clock::time_point(begin);
}

}  // namespace reporter
