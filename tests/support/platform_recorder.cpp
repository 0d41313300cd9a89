#include "support/platform_recorder.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <utility>

#include <dlog.h>

namespace test_support {
namespace {

struct recording {
    std::vector<std::string> records;
    std::vector<std::chrono::nanoseconds> pauses;
};

std::mutex mutex;

// Never destroyed, as threads and static objects may log to the very end of the process.
recording& recorded() {
    static auto& instance = *new recording;
    return instance;
}

std::string formatted(const char* format, va_list arguments) {
    char* text = nullptr;
    const int size = vasprintf(&text, format, arguments);
    const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
    return {text, static_cast<std::size_t>(size)};
}

}  // namespace

std::string message_in(const std::string& record) {
    const std::string memory = " > PROCESSOR :rss ";
    const std::size_t found = record.find(memory);
    if (found == std::string::npos) {
        return record;
    }
    const std::size_t end = record.size() - (record.back() == '\n' ? 1 : 0);
    const std::size_t begin = record.find(' ', found + memory.size());
    return record.substr(0, 1) + record.substr(begin, end - begin);
}

std::vector<std::string> platform_recorder::records() const {
    const std::lock_guard<std::mutex> guard(mutex);
    return recorded().records;
}

std::vector<std::string> platform_recorder::messages() const {
    std::vector<std::string> all = records();
    std::transform(all.begin(), all.end(), all.begin(), message_in);
    return all;
}

std::size_t platform_recorder::count(const std::string& message) const {
    const std::vector<std::string> all = messages();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), message));
}

std::vector<std::chrono::nanoseconds> platform_recorder::pauses() const {
    const std::lock_guard<std::mutex> guard(mutex);
    return recorded().pauses;
}

void platform_recorder::clear() {
    recording old;
    const std::lock_guard<std::mutex> guard(mutex);
    std::swap(recorded(), old);
}

}  // namespace test_support

using namespace test_support;

int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    const std::string record = std::string(1, "DIWE"[(prio + 1) % 4]) + "/" + tag + "(" +
                               std::to_string(log_id) + "): " + formatted(fmt, arguments);
    va_end(arguments);
    if (std::getenv("TEV_TEST_LOG") != nullptr) {
        std::fputs(record.c_str(), stderr);
    }
    const std::lock_guard<std::mutex> guard(mutex);
    recorded().records.push_back(record);
    return 0;
}

extern "C" int nanosleep(const timespec* requested, timespec*) {
    const std::lock_guard<std::mutex> guard(mutex);
    recorded().pauses.push_back(std::chrono::seconds(requested->tv_sec) +
                                std::chrono::nanoseconds(requested->tv_nsec));
    return 0;
}
