#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace report_tool {

/// Tells on standard error how long work of many calls takes: beforehand by their pauses, where
/// that is some seconds, and on a terminal also what remains.
class progress {
public:
    progress(std::size_t steps, std::size_t calls);
    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;
    ~progress();

    /// One more step is done.
    void step();
    /// Makes room for a line of output.
    void clear() const;

private:
    std::size_t _steps;
    std::size_t _done = 0;
    bool _shown;
    std::chrono::steady_clock::time_point _begin = std::chrono::steady_clock::now();
};

/// Seconds that the pauses of so many calls take.
double pause_seconds(std::size_t calls);

/// "8.6 s", "12 min".
std::string readable_duration(double seconds);

}  // namespace report_tool
