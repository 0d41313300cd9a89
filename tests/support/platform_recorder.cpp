#include "support/platform_recorder.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include <dlog.h>

namespace test_support {
namespace {

struct records {
    std::mutex mutex;
    bool recording = false;
    std::vector<log_entry> log;
    std::vector<std::chrono::nanoseconds> pauses;
};

// Outlives every thread and static object that might still log.
records& recorded() {
    static auto* const instance = new records;
    return *instance;
}

char letter(int priority) {
    return priority >= 3 && priority <= 6 ? "DIWE"[priority - 3] : '?';
}

std::string printed(const char* format, va_list arguments) {
    std::vector<char> text(1 << 16);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    return text.data();
}

log_entry entry_from(const char* format, va_list arguments) {
    log_entry entry{};
    entry.format = format;
    if (entry.format == "%s: %s(%d) > %s") {
        entry.file = va_arg(arguments, const char*);
        entry.function = va_arg(arguments, const char*);
        entry.line = va_arg(arguments, int);
        entry.text = va_arg(arguments, const char*);
    } else {
        entry.text = printed(format, arguments);
    }
    return entry;
}

void record(log_entry entry) {
    if (std::getenv("TEV_TEST_LOG") != nullptr) {
        std::fprintf(stderr, "%c %s: %s\n", letter(entry.priority), entry.function.c_str(),
                     entry.message().c_str());
    }
    records& target = recorded();
    const std::lock_guard<std::mutex> guard(target.mutex);
    if (target.recording) {
        target.log.push_back(std::move(entry));
    }
}

}  // namespace

std::string log_entry::message() const {
    const std::string prefix = "PROCESSOR :rss ";
    std::string result = text;
    if (result.compare(0, prefix.size(), prefix) == 0) {
        result.erase(0, result.find(' ', prefix.size()) + 1);
    }
    if (!result.empty() && result.back() == '\n') {
        result.pop_back();
    }
    return result;
}

platform_recorder::platform_recorder() {
    clear();
    const std::lock_guard<std::mutex> guard(recorded().mutex);
    recorded().recording = true;
}

platform_recorder::~platform_recorder() {
    const std::lock_guard<std::mutex> guard(recorded().mutex);
    recorded().recording = false;
}

std::vector<log_entry> platform_recorder::log() const {
    const std::lock_guard<std::mutex> guard(recorded().mutex);
    return recorded().log;
}

std::vector<std::string> platform_recorder::messages() const {
    std::vector<std::string> result;
    for (const log_entry& entry : log()) {
        result.push_back(std::string{letter(entry.priority), ' '} + entry.message());
    }
    return result;
}

std::size_t platform_recorder::count(const std::string& message) const {
    const std::vector<std::string> all = messages();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), message));
}

std::size_t platform_recorder::pauses() const {
    const std::lock_guard<std::mutex> guard(recorded().mutex);
    return recorded().pauses.size();
}

std::chrono::nanoseconds platform_recorder::paused() const {
    const std::lock_guard<std::mutex> guard(recorded().mutex);
    std::chrono::nanoseconds sum{};
    for (const std::chrono::nanoseconds pause : recorded().pauses) {
        sum += pause;
    }
    return sum;
}

void platform_recorder::clear() {
    const std::lock_guard<std::mutex> guard(recorded().mutex);
    recorded().log.clear();
    recorded().pauses.clear();
}

}  // namespace test_support

int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    test_support::log_entry entry = test_support::entry_from(fmt, arguments);
    va_end(arguments);
    entry.log_id = log_id;
    entry.priority = prio;
    entry.tag = tag;
    test_support::record(std::move(entry));
    return 0;
}

extern "C" int nanosleep(const timespec* requested, timespec* left) {
    test_support::records& target = test_support::recorded();
    {
        const std::lock_guard<std::mutex> guard(target.mutex);
        if (target.recording) {
            target.pauses.push_back(std::chrono::seconds(requested->tv_sec) +
                                    std::chrono::nanoseconds(requested->tv_nsec));
            return 0;
        }
    }
    const int error = clock_nanosleep(CLOCK_REALTIME, 0, requested, left);
    if (error == 0) {
        return 0;
    }
    errno = error;
    return -1;
}
