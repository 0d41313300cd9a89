#pragma once

#include <chrono>
#include <string>
#include <vector>

/// Stands in front of the platform's log and of `nanosleep` in the test process.
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

    /// `text` without the memory figure in front and the final newline.
    std::string message() const;
};

/// Records every log record and pause of the process for as long as it lives; the pauses are
/// counted and not slept. One at a time; without one the log is dropped and pauses take their time.
/// With TEV_TEST_LOG in the environment every record also goes to standard error. Any thread.
class platform_recorder {
public:
    platform_recorder();
    platform_recorder(const platform_recorder&) = delete;
    platform_recorder& operator=(const platform_recorder&) = delete;
    ~platform_recorder();

    std::vector<log_entry> log() const;

    /// The messages in order, each with its priority in front: "I ", "W " or "E ".
    std::vector<std::string> messages() const;

    /// How many records hold exactly this, with the priority in front as in `messages`.
    std::size_t count(const std::string& message) const;

    std::size_t pauses() const;
    std::chrono::nanoseconds paused() const;

    /// Forgets what was recorded so far.
    void clear();
};

}  // namespace test_support
