// Put in front of an agent (LD_PRELOAD) for tests and measurements: its pauses take no time, and
// the one numbered TEV_SIGNAL_AT (from 1) says "signal" and raises signal TEV_SIGNAL. A signal that
// can be handled comes once there is a handler, and within a pause of full length. Names do not
// resolve: the resolver never answers, so that a stop can be seen to end that, too.
#include <netdb.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>

namespace {

int number_in(const char* variable) {
    const char* text = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): nothing is set
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
