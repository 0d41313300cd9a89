// Runs a command and prints what it took: wall, user and system time in milliseconds, and its peak
// memory in KiB. usage: measure [--maps FILE] COMMAND [ARGUMENT ...]
//
// With --maps, the command's /proc/PID/smaps is read over and over, and the largest is written to
// FILE. That slows the command down, so its times then mean nothing.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

namespace {

long resident_kib(const std::string& maps) {
    long sum = 0;
    constexpr const char* key = "\nRss:";
    for (auto at = maps.find(key); at != std::string::npos; at = maps.find(key, at + 1)) {
        sum += std::strtol(maps.c_str() + at + std::strlen(key), nullptr, 10);
    }
    return sum;
}

// Until the process is gone or another's child: a zombie has no mappings.
std::string largest_maps(pid_t child) {
    const std::string path = "/proc/" + std::to_string(child) + "/smaps";
    std::string largest;
    long most = 0;
    for (;;) {
        std::ifstream in(path, std::ios::binary);
        const std::string maps{std::istreambuf_iterator<char>(in),
                               std::istreambuf_iterator<char>()};
        if (maps.empty()) {
            return largest;
        }
        const long resident = resident_kib(maps);
        if (resident > most) {
            most = resident;
            largest = maps;
        }
    }
}

double milliseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

int run(char** command, const char* maps_file) {
    using clock = std::chrono::steady_clock;
    const auto begin = clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(command[0], command);
        std::perror(command[0]);
        _exit(127);
    }
    if (maps_file != nullptr) {
        std::ofstream(maps_file, std::ios::binary) << largest_maps(child);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const std::chrono::duration<double, std::milli> wall = clock::now() - begin;
    std::printf("%.2f %.2f %.2f %ld\n", wall.count(), milliseconds(usage.ru_utime),
                milliseconds(usage.ru_stime), usage.ru_maxrss);
    return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    const bool maps = argc > 3 && std::strcmp(argv[1], "--maps") == 0;
    if (argc < 2) {
        std::fputs("usage: measure [--maps FILE] COMMAND [ARGUMENT ...]\n", stderr);
        return 2;
    }
    return run(argv + (maps ? 3 : 1), maps ? argv[2] : nullptr);
}
