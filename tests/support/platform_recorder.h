#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace test_support {

/// "I/TEV_REPORTER(1): file: function(2) > PROCESSOR :rss 3 text", with or without a newline, as
/// "I text"; other lines as they are.
std::string message_in(const std::string& record);

/// Stands in front of the platform's log and of `nanosleep` in the test process. Log records and
/// pauses are recorded instead of written and slept. A new recorder begins with none. With
/// TEV_TEST_LOG in the environment every record also goes to standard error. One at a time; any
/// thread.
class platform_recorder {
public:
    platform_recorder() { clear(); }
    platform_recorder(const platform_recorder&) = delete;
    platform_recorder& operator=(const platform_recorder&) = delete;

    /// As the platform's log would show them, with the log's number in place of the process's.
    std::vector<std::string> records() const;
    /// The messages in them.
    std::vector<std::string> messages() const;
    /// How many records hold exactly this message.
    std::size_t count(const std::string& message) const;

    std::vector<std::chrono::nanoseconds> pauses() const;

    void clear();
};

}  // namespace test_support
