#include "stop_watcher.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <future>
#include <system_error>
#include <utility>

#include "logging.h"
#include "pause.h"

namespace reporter {
namespace {

using clock = std::chrono::steady_clock;

constexpr char stop_word = 's';
constexpr char finish_word = 'f';

// Both ends live as long as the process: a handler may be about to write to one.
struct word_pipe {
    word_pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
        read_end = ends[0];
        write_end = ends[1];
    }

    int read_end = -1;
    int write_end = -1;
};

const word_pipe& words() {
    static const word_pipe pipe;
    return pipe;
}

std::atomic<int> stop_words_to{-1};

// Next word, or 0 when the deadline passes first.
char next_word(clock::time_point deadline) {
    pollfd readable{words().read_end, POLLIN, 0};
    for (;;) {
        int wait_ms = -1;
        if (deadline != clock::time_point::max()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now());
            if (left.count() <= 0) {
                return 0;
            }
            wait_ms = static_cast<int>(left.count());
        }
        poll(&readable, 1, wait_ms);
        char word = 0;
        if (read(words().read_end, &word, 1) == 1) {
            return word;
        }
    }
}

bool finished_before(clock::time_point deadline) {
    char word = stop_word;
    while (word == stop_word) {
        word = next_word(deadline);
    }
    return word == finish_word;
}

// On a thread of its own, so that the deadline holds even where it blocks. Where there is no room
// for a thread, the deadline alone ends the process.
std::future<void> start(const std::function<void()>& on_stop) {
    try {
        return std::async(std::launch::async, on_stop);
    } catch (const std::system_error& error) {
        REPORTER_ERROR("can't start the stop: " << error.what());
        return {};
    }
}

void leave_word(int write_end, char word) noexcept {
    const int saved_errno = errno;
    static_cast<void>(!write(write_end, &word, 1));
    errno = saved_errno;
}

}  // namespace

stop_watcher::stop_watcher(std::function<void()> on_stop, std::chrono::milliseconds grace)
    : _on_stop(std::move(on_stop)), _grace(grace) {
    char stale = 0;
    while (read(words().read_end, &stale, 1) == 1) {
    }
    const int write_end = words().write_end;
    _thread = std::thread([this] { watch(); });
    stop_words_to = write_end;
}

stop_watcher::~stop_watcher() {
    stop_words_to = -1;
    leave_word(words().write_end, finish_word);
    _thread.join();
}

void stop_watcher::request_stop() noexcept {
    const int write_end = stop_words_to;
    if (write_end >= 0) {
        leave_word(write_end, stop_word);
    }
}

void stop_watcher::watch() const {
    if (next_word(clock::time_point::max()) == finish_word) {
        return;
    }
    const auto deadline = std::max(clock::now(), last_pause_end()) + _grace;
    const std::future<void> stopping = start(_on_stop);
    if (finished_before(deadline) &&
        (!stopping.valid() || stopping.wait_until(deadline) == std::future_status::ready)) {
        return;
    }
    REPORTER_ERROR("still busy " << _grace.count() << "ms after the stop request, leaving");
    std::_Exit(EXIT_SUCCESS);
}

}  // namespace reporter
