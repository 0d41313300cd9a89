#pragma once

#include <chrono>

namespace reporter {

// What moves the deadline of a stop on. Reports that the server took must be removed, or they go
// out again. That may take as long as it progresses, and so may handing a cursor back. One state
// for the process; any thread.

/// Exists while reports that the server has answered wait for their removal. Each step of it may
/// take 5 s before the grace period begins, as another process may hold a lock. One at a time.
class settling {
public:
    settling() noexcept;
    settling(const settling&) = delete;
    settling& operator=(const settling&) = delete;
    ~settling();
};

/// An answered report was removed or counted, or one of a cursor handed back.
void note_progress() noexcept;

/// From now on progress moves nothing. Not to be taken back.
void disregard_progress() noexcept;

/// The grace period of a stop does not begin before this.
std::chrono::steady_clock::time_point grace_begin() noexcept;

}  // namespace reporter
