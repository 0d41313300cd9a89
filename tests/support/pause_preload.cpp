// In front of the agent's nanosleep: pauses are counted and take no time, and the one numbered
// TEV_SIGNAL_AT (from 1) says "signal" and raises signal TEV_SIGNAL. One that can be handled comes
// once there is a handler, and within a pause of full length.
// And in front of the resolver, which never answers.
#include <netdb.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>

namespace {

int number_in(const char* variable) {
    const char* text = std::getenv(variable);
    return text != nullptr ? std::atoi(text) : 0;
}

bool is_handled(int number) {
    struct sigaction present {};
    sigaction(number, nullptr, &present);
    return present.sa_handler != SIG_DFL;
}

}  // namespace

extern "C" int nanosleep(const timespec* requested, timespec*) {
    static std::atomic<int> pauses{0};
    if (++pauses != number_in("TEV_SIGNAL_AT")) {
        return 0;
    }
    const int number = number_in("TEV_SIGNAL");
    while (number != SIGKILL && !is_handled(number)) {
        usleep(1000);
    }
    static_cast<void>(!write(STDERR_FILENO, "signal\n", 7));
    raise(number);
    return clock_nanosleep(CLOCK_MONOTONIC, 0, requested, nullptr);
}

extern "C" int getaddrinfo(const char*, const char*, const addrinfo*, addrinfo**) {
    for (;;) {
        pause();
    }
}

// The address sanitizer wants to come first, and this library does.
extern "C" const char* __asan_default_options() {
    return "verify_asan_link_order=0";
}
