#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace test_support {

/// The arguments of one call to the platform's log.
struct log_entry {
    int log_id;
    int priority;
    std::string tag;
    std::string format;
    std::string file;
    std::string function;
    int line;
    std::string text;
};

/// Stands in front of the platform's log and of `nanosleep` in the test process: records every log
/// record and pause for as long as it lives; pauses are counted and not slept. Without one the log
/// is dropped and pauses take their time. With TEV_TEST_LOG in the environment every record also
/// goes to standard error. Any thread.
class platform_recorder {
public:
    platform_recorder();
    platform_recorder(const platform_recorder&) = delete;
    platform_recorder& operator=(const platform_recorder&) = delete;
    ~platform_recorder();

    std::vector<log_entry> log() const;

    /// The messages in order, without the memory figure and the final newline, each with its
    /// priority in front: "I ", "W " or "E ".
    std::vector<std::string> messages() const;

    /// How many records hold exactly this message, priority included.
    std::size_t count(const std::string& message) const;

    std::vector<std::chrono::nanoseconds> pauses() const;

    /// Forgets what was recorded so far.
    void clear();
};

}  // namespace test_support
