#pragma once

#include <chrono>

namespace reporter {

/// The fixed throttle.
inline constexpr std::chrono::milliseconds pause_length(150);

/// Blocks the calling thread for that long, and goes on with the rest of it after a signal. Every
/// pause of the program goes through here. Any thread.
void slow_down_pause() noexcept;

}  // namespace reporter
