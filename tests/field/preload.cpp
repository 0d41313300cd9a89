// A clock that shows TEV_CLOCK where that is set, a name server that never answers where
// TEV_SILENT_RESOLVER is, and waits that take no time.

#include <dlfcn.h>
#include <netdb.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

extern "C" int clock_gettime(clockid_t clock, timespec* result) noexcept {
    static const auto real =
        reinterpret_cast<decltype(&clock_gettime)>(dlsym(RTLD_NEXT, "clock_gettime"));
    const int status = real(clock, result);
    const char* const shown = std::getenv("TEV_CLOCK");
    if (shown != nullptr && clock == CLOCK_REALTIME) {
        result->tv_sec = static_cast<time_t>(std::atoll(shown));
    }
    return status;
}

extern "C" time_t time(time_t* result) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}

extern "C" int nanosleep(const timespec*, timespec*) {
    return 0;
}

extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** found) {
    while (std::getenv("TEV_SILENT_RESOLVER") != nullptr) {
        pause();
    }
    static const auto real =
        reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return real(name, service, hints, found);
}
