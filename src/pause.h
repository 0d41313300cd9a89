#pragma once

#include <chrono>

namespace reporter {

/// The fixed throttle.
inline constexpr std::chrono::milliseconds pause_length(150);

/// Blocks the calling thread for that long, and goes on with the rest of it after a signal. Every
/// pause of the program goes through here. Any thread.
void slow_down_pause() noexcept;

/// When the pause that began last ends or ended; the clock's zero before the first. Any thread.
std::chrono::steady_clock::time_point last_pause_end() noexcept;

}  // namespace reporter
