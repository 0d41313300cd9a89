// A clock that shows TEV_CLOCK where that is set, and waits that take no time.

#include <cstdlib>
#include <ctime>

extern "C" time_t time(time_t* result) noexcept {
    const char* const shown = std::getenv("TEV_CLOCK");
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t seconds = shown != nullptr ? static_cast<time_t>(std::atoll(shown)) : now.tv_sec;
    if (result != nullptr) {
        *result = seconds;
    }
    return seconds;
}

extern "C" int nanosleep(const timespec*, timespec*) {
    return 0;
}
