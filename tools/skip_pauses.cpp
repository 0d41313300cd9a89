// Put in front of an agent (LD_PRELOAD) for tests and measurements, so that its pauses take no
// time. They are numbered from 1. From number TEV_REAL_FROM on, where that is set, they take their
// time. Number TEV_SIGNAL_AT prints "signal" and raises the signal TEV_SIGNAL. A signal that can be
// handled comes once there is a handler, and within a pause of full length. The resolver never
// answers, so that tests can see a stop end that, too.
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
