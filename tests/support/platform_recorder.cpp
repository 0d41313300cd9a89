#include "support/platform_recorder.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <utility>

#include <dlog.h>

namespace test_support {
namespace {

struct recording {
    bool on = false;
    std::vector<log_entry> log;
    std::vector<std::chrono::nanoseconds> pauses;
};

std::mutex mutex;

// Never destroyed: threads and static objects may log to the very end of the process.
recording& recorded() {
    static auto& instance = *new recording;
    return instance;
}

// Replaces the recording; the old one's contents go after the lock.
void restart(bool on) {
    recording fresh;
    fresh.on = on;
    const std::lock_guard<std::mutex> guard(mutex);
    std::swap(recorded(), fresh);
}

std::string message_of(const log_entry& entry) {
    const std::string prefix = "PROCESSOR :rss ";
    const bool has_figure = entry.text.compare(0, prefix.size(), prefix) == 0;
    const std::size_t begin = has_figure ? entry.text.find(' ', prefix.size()) + 1 : 0;
    const std::string line =
        std::string{"DIWE"[(entry.priority + 1) % 4], ' '} + entry.text.substr(begin);
    return line.back() == '\n' ? line.substr(0, line.size() - 1) : line;
}

}  // namespace

platform_recorder::platform_recorder() {
    restart(true);
}

platform_recorder::~platform_recorder() {
    restart(false);
}

void platform_recorder::clear() {
    restart(true);
}

std::vector<log_entry> platform_recorder::log() const {
    const std::lock_guard<std::mutex> guard(mutex);
    return recorded().log;
}

std::vector<std::string> platform_recorder::messages() const {
    std::vector<std::string> result;
    for (const log_entry& entry : log()) {
        result.push_back(message_of(entry));
    }
    return result;
}

std::size_t platform_recorder::count(const std::string& message) const {
    const std::vector<std::string> all = messages();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), message));
}

std::vector<std::chrono::nanoseconds> platform_recorder::pauses() const {
    const std::lock_guard<std::mutex> guard(mutex);
    return recorded().pauses;
}

}  // namespace test_support

using namespace test_support;

int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
    log_entry entry{log_id, prio, tag, fmt, "", "", 0, ""};
    va_list arguments;
    va_start(arguments, fmt);
    if (entry.format == "%s: %s(%d) > %s") {
        entry.file = va_arg(arguments, const char*);
        entry.function = va_arg(arguments, const char*);
        entry.line = va_arg(arguments, int);
        entry.text = va_arg(arguments, const char*);
    }
    va_end(arguments);
    if (std::getenv("TEV_TEST_LOG") != nullptr) {
        std::fprintf(stderr, "%s\n", message_of(entry).c_str());
    }
    const std::lock_guard<std::mutex> guard(mutex);
    if (recorded().on) {
        recorded().log.push_back(std::move(entry));
    }
    return 0;
}

extern "C" int nanosleep(const timespec* requested, timespec* left) {
    {
        const std::lock_guard<std::mutex> guard(mutex);
        if (recorded().on) {
            recorded().pauses.push_back(std::chrono::seconds(requested->tv_sec) +
                                        std::chrono::nanoseconds(requested->tv_nsec));
            return 0;
        }
    }
    errno = clock_nanosleep(CLOCK_REALTIME, 0, requested, left);
    return errno == 0 ? 0 : -1;
}
