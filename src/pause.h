#pragma once

#include <chrono>

namespace reporter {

/// Blocks the calling thread for the fixed throttle of 150 milliseconds, and goes on with the rest
/// of it after a signal. Every pause of the program goes through here. Any thread.
void slow_down_pause() noexcept;

/// When the pause that began last ends or ended; the clock's zero before the first. Any thread.
std::chrono::steady_clock::time_point last_pause_end() noexcept;

}  // namespace reporter
