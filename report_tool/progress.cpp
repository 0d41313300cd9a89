#include "progress.h"

#include <unistd.h>

#include <cstdio>

#include <iostream>

#include "output.h"
#include "pause.h"

namespace report_tool {
namespace {

constexpr double worth_telling_seconds = 3;

}  // namespace

double pause_seconds(std::size_t calls) {
    return std::chrono::duration<double>(reporter::pause_length).count() *
           static_cast<double>(calls);
}

std::string readable_duration(double seconds) {
    char text[32];
    if (seconds < 100) {
        std::snprintf(text, sizeof text, "%.1f s", seconds);
    } else {
        std::snprintf(text, sizeof text, "%.0f min", seconds / 60);
    }
    return text;
}

progress::progress(std::size_t steps, std::size_t calls)
    : _steps(steps), _shown(pause_seconds(calls) >= worth_telling_seconds) {
    if (_shown) {
        std::cerr << counted(calls, "call") << " of the store, each with its pause: "
                  << readable_duration(pause_seconds(calls)) << " at least\n";
    }
    _shown = _shown && isatty(STDERR_FILENO) == 1;
}

progress::~progress() {
    clear();
}

void progress::clear() const {
    if (_shown) {
        std::cerr << "\r\033[K" << std::flush;
    }
}

void progress::step() {
    ++_done;
    if (_shown) {
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - _begin;
        const auto left = static_cast<double>(_steps - _done) / static_cast<double>(_done);
        clear();
        std::cerr << _done << " of " << _steps << ", " << readable_duration(spent.count() * left)
                  << " left" << std::flush;
    }
}

}  // namespace report_tool
