#include "logging.h"

#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>

#include <dlog.h>

namespace reporter {
namespace {

constexpr int system_log_id = 2;
constexpr const char* log_tag = "TEV_REPORTER";

const char* base_name(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

// The result wraps at 32 bits, as it does on the device.
constexpr std::int32_t pages_to_kib(long pages, long page_size) {
    const auto page_kib = static_cast<std::uint32_t>(page_size / 1024);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(pages) * page_kib);
}
static_assert(pages_to_kib(524287, 4096) == 2097148);
static_assert(pages_to_kib(536870912, 4096) == std::numeric_limits<std::int32_t>::min());

// Three system calls and no stream, as every record reads the figure. Fields are counted from the
// front, so a blank in the process name gives a wrong figure, which is accepted.
double read_resident_kib() {
    char text[1024];
    const int stat = open("/proc/self/stat", O_RDONLY | O_CLOEXEC);
    if (stat < 0) {
        return -1.0;
    }
    const ssize_t size = read(stat, text, sizeof text - 1);
    close(stat);
    if (size < 0) {
        return -1.0;
    }
    text[size] = '\0';

    constexpr int fields_before_resident = 23;
    constexpr const char* white_space = " \t\n\v\f\r";
    const char* field = text;
    for (int i = 0; i < fields_before_resident; ++i) {
        field += std::strspn(field, white_space);
        field += std::strcspn(field, white_space);
    }
    return pages_to_kib(std::strtol(field, nullptr, 10), sysconf(_SC_PAGESIZE));
}

// A stream writes a double with six digits. Up to those it reads like the integer, which takes a
// tenth of the time.
void write_whole(std::ostream& text, double value) {
    if (std::abs(value) < 1e6) {
        text << static_cast<std::int32_t>(value);
    } else {
        text << value;
    }
}

}  // namespace

double process_mem_usage() noexcept {
    return read_resident_kib();
}

// A stream does not throw what goes wrong in it. So this does not throw, and destructors may log.
log_record::log_record(log_priority priority, const char* file, const char* function,
                       int line) noexcept
    : _priority(priority), _file(file), _function(function), _line(line) {
    _text << "PROCESSOR :rss ";
    write_whole(_text, process_mem_usage());
    _text << ' ';
}

log_record::~log_record() {
    try {
        std::string text = _text.str();
        if (text.back() != '\n') {
            text += '\n';
        }
        __dlog_print(system_log_id, static_cast<int>(_priority), log_tag, "%s: %s(%d) > %s",
                     base_name(_file), _function, _line, text.c_str());
    } catch (const std::exception&) {
        // Without memory for it the record is dropped, and the work goes on.
        return;
    }
}

}  // namespace reporter
