#include "stop_watcher.h"

#include <semaphore.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "logging.h"
#include "stop_deadline.h"

namespace reporter {
namespace {

using clock = std::chrono::steady_clock;

// The deadline may move either way while it is waited for.
constexpr std::chrono::milliseconds look_again{20};

// Never destroyed, as a handler may be about to post.
sem_t wake;

bool is_ready(const std::future<void>& future, std::chrono::milliseconds within) {
    return future.wait_for(within) == std::future_status::ready;
}

// On a thread of its own, so that the deadline holds even where it blocks. Where no thread can be
// made, the deadline alone ends the process.
std::future<void> start(const std::function<void()>& on_stop) {
    try {
        return std::async(std::launch::async, on_stop);
    } catch (const std::system_error& error) {
        REPORTER_ERROR("can't start the stop: " << error.what());
        return {};
    }
}

}  // namespace

stop_watcher::stop_watcher(std::function<void()> on_stop, std::chrono::milliseconds grace)
    : _on_stop(std::move(on_stop)), _grace(grace), _ended(_ending.get_future()) {
    if (sem_init(&wake, 0, 0) != 0) {
        throw std::system_error(errno, std::generic_category(), "sem_init");
    }
    _thread = std::thread([this] { watch(); });
}

stop_watcher::~stop_watcher() {
    _ending.set_value();
    sem_post(&wake);
    _thread.join();
}

void stop_watcher::request_stop() noexcept {
    sem_post(&wake);
}

void stop_watcher::watch() const {
    while (sem_wait(&wake) != 0 && errno == EINTR) {
    }
    if (is_ready(_ended, {})) {
        return;
    }
    const auto asked = clock::now();
    const std::future<void> stopping = start(_on_stop);
    while (clock::now() < std::max(asked, grace_begin()) + _grace) {
        if (is_ready(_ended, look_again) && (!stopping.valid() || is_ready(stopping, look_again))) {
            return;
        }
    }
    // The alarm is for a log that hangs.
    std::signal(SIGALRM, [](int) { std::_Exit(EXIT_SUCCESS); });
    alarm(1);
    REPORTER_ERROR("still busy after the stop request, leaving");
    std::_Exit(EXIT_SUCCESS);
}

}  // namespace reporter
