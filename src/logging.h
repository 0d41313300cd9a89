#pragma once

#include <sstream>
#include <string>

namespace reporter {

/// Resident set size of this process in KiB, -1 when it cannot be read. Any thread; never throws.
double process_mem_usage() noexcept;

/// Priorities of the platform log, by its own numbers.
enum class log_priority { info = 4, warn = 5, error = 6 };

/// One record of the platform log, collected by stream insertion and emitted when it is destroyed.
/// It begins with the resident memory at the time of its making. A final newline is added where the
/// message has none. A record that cannot be written is dropped without a word. Any thread; not for
/// signal handlers.
class log_record {
public:
    /// `file` may carry a directory, which is dropped; both texts must outlive the record.
    log_record(log_priority priority, const char* file, const char* function, int line) noexcept;
    log_record(const log_record&) = delete;
    log_record& operator=(const log_record&) = delete;
    ~log_record();

    /// Takes the message. Valid while the record lives.
    std::ostream& message() { return _text; }

private:
    // Where the record comes from; owned by whoever made it.
    log_priority _priority;
    const char* _file;
    const char* _function;
    int _line;
    std::ostringstream _text;
};

}  // namespace reporter

/// One record with the values of `message_text`, joined by <<, each evaluated once.
#define REPORTER_LOG(priority, message_text)                                                     \
    do {                                                                                         \
        ::reporter::log_record record_((priority), __FILE__, static_cast<const char*>(__func__), \
                                       __LINE__);                                                \
        record_.message() << message_text; /* NOLINT(bugprone-macro-parentheses) */              \
    } while (false)

/// Usage: REPORTER_INFO("CA size: " << size); the record names the calling function and line.
#define REPORTER_INFO(message_text) REPORTER_LOG(::reporter::log_priority::info, message_text)
#define REPORTER_WARN(message_text) REPORTER_LOG(::reporter::log_priority::warn, message_text)
#define REPORTER_ERROR(message_text) REPORTER_LOG(::reporter::log_priority::error, message_text)
