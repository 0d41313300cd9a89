// Put in front of an agent (LD_PRELOAD) for tests and measurements: its pauses take no time, up to
// the one numbered TEV_REAL_FROM (from 1) where that is set, and the one numbered TEV_SIGNAL_AT
// says "signal" and raises signal TEV_SIGNAL. A signal that can be handled comes once there is a
// handler, and within a pause of full length. Names do not resolve: the resolver never answers, so
// that a stop can be seen to end that, too.
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

int sleep_for(const timespec& length) {
    return clock_nanosleep(CLOCK_MONOTONIC, 0, &length, nullptr);
}

}  // namespace

extern "C" int nanosleep(const timespec* requested, timespec*) {
    static std::atomic<int> pauses{0};
    const int pause = ++pauses, real_from = number_in("TEV_REAL_FROM");
    if (pause != number_in("TEV_SIGNAL_AT")) {
        const bool is_real = real_from != 0 && pause >= real_from;
        return is_real ? sleep_for(*requested) : 0;
    }
    const int number = number_in("TEV_SIGNAL");
    while (number != SIGKILL && !is_handled(number)) {
        usleep(1000);
    }
    static_cast<void>(!write(STDERR_FILENO, "signal\n", 7));
    raise(number);
    return sleep_for(*requested);
}

extern "C" int getaddrinfo(const char*, const char*, const addrinfo*, addrinfo**) {
    for (;;) {
        pause();
    }
}
