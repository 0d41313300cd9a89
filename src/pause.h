#pragma once

namespace reporter {

/// Blocks the calling thread for the fixed throttle of 150 milliseconds, resumed after a signal.
/// Every pause of the program goes through here.
void slow_down_pause() noexcept;

}  // namespace reporter
