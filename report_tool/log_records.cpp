#include "log_records.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <algorithm>
#include <string>

#include "output.h"

namespace {

using print_function = int (*)(int, int, const char*, const char*, ...);

// The platform's own, once records may go there.
print_function next = nullptr;

int copy = -1;

// In one write, so that lines of several threads do not mix.
void write_copy(int priority, const char* tag, const char* text) {
    const std::string line = std::string(1, "DIWE"[std::clamp(priority, 3, 6) - 3]) + "/" + tag +
                             "(" + std::to_string(getpid()) + "): " + text;
    report_tool::write_all(copy, line);
}

}  // namespace

// Takes the place of the platform's call: the loader looks into the program before it looks into
// libraries. NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" int __dlog_print(int log_id, int priority, const char* tag, const char* format, ...) {
    if (next == nullptr && copy < 0) {
        return 0;
    }
    char* text = nullptr;
    va_list arguments;
    va_start(arguments, format);
    const int size = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (size < 0) {
        return -1;
    }
    if (copy >= 0) {
        write_copy(priority, tag, text);
    }
    const int written = next != nullptr ? next(log_id, priority, tag, "%s", text) : 0;
    std::free(text);
    return written;
}

void report_tool::let_records_through() {
    next = reinterpret_cast<print_function>(dlsym(RTLD_NEXT, "__dlog_print"));
}

void report_tool::copy_records_to(int descriptor) {
    copy = descriptor;
}
