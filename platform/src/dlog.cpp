#include "dlog.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr int first_priority = 3;
constexpr int last_priority = 6;

// Bytes of a line on the stack. Longer ones are rare and go through the heap.
constexpr size_t line_buffer_size = 4096;

// Writes the record, at most `capacity` bytes and 0-terminated. Returns its whole length, which may
// be more; negative when the format fails.
int format_line(char* buffer, size_t capacity, char letter, const char* tag, const char* fmt,
                va_list args) {
    const int prefix = snprintf(buffer, capacity, "%c/%s(%d): ", letter, tag, getpid());
    if (prefix < 0) {
        return prefix;
    }
    const size_t used = std::min(static_cast<size_t>(prefix), capacity);
    const int text = vsnprintf(buffer + used, capacity - used, fmt, args);
    return text < 0 ? text : prefix + text;
}

// One write, so that the records of several threads and processes do not mix within a line.
int write_line(char* line, size_t length) {
    if (line[length - 1] != '\n') {
        line[length++] = '\n';
    }
    ssize_t written = 0;
    do {
        written = write(STDERR_FILENO, line, length);
    } while (written < 0 && errno == EINTR);
    return static_cast<int>(written);
}

int print_line(char letter, const char* tag, const char* fmt, va_list args) {
    va_list again;
    va_copy(again, args);
    char buffer[line_buffer_size];
    // One byte is left for a newline that may be missing.
    const int length = format_line(buffer, sizeof buffer - 1, letter, tag, fmt, args);
    int written = -1;
    if (length > 0 && static_cast<size_t>(length) < sizeof buffer - 1) {
        written = write_line(buffer, static_cast<size_t>(length));
    } else if (length > 0) {
        const size_t needed = static_cast<size_t>(length) + 2;
        char* large = static_cast<char*>(malloc(needed));
        if (large != nullptr && format_line(large, needed - 1, letter, tag, fmt, again) == length) {
            written = write_line(large, static_cast<size_t>(length));
        }
        free(large);
    }
    va_end(again);
    return written;
}

}  // namespace

int __dlog_print(int /*log_id*/, int prio, const char* tag, const char* fmt, ...) {
    const int saved_errno = errno;
    if (tag == nullptr || fmt == nullptr) {
        return -1;
    }
    const char letter = "DIWE"[std::clamp(prio, first_priority, last_priority) - first_priority];
    va_list args;
    va_start(args, fmt);
    const int written = print_line(letter, tag, fmt, args);
    va_end(args);
    errno = saved_errno;
    return written;
}
