// Makes calls on the store of a device, with one interpreter and connection, as while a pass has
// ids. Prints for each call: syncs, bytes handed to pwrite, and microseconds of processor time.
// With STAT, each call has an interpreter and a connection of its own, and the line also has the
// sectors of 512 bytes that the block device below had written, first at the call's return, then
// once the file system had nothing left to write.
//
// usage: store_calls KIND COUNT [STAT]    KIND: see `kinds`; STAT: /sys/block/NAME/stat
//
// The kind "overload" is an hour in which COUNT reports of 1 KiB come in each second, by a clock
// that runs as fast as they are saved, with a listing of times every ten minutes. It prints for
// each minute: the time, the bytes of the database and the longest save in microseconds.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "common.h"
#include "data_dir.h"
#include "logging.h"
#include "storage/open_reports_storage.h"

namespace {

constexpr std::size_t REPORT_SIZE = 1024;

long long syncs = 0, bytes_written = 0;
std::time_t simulated = 0;  // 0: the clock is the machine's.

}  // namespace

// The first three count SQLite's calls and pass them on.
extern "C" ssize_t pwrite64(int file, const void* bytes, std::size_t size, off64_t at) {
    bytes_written += static_cast<long long>(size);
    return syscall(SYS_pwrite64, file, bytes, size, at);
}
extern "C" int fdatasync(int file) {
    ++syncs;
    return static_cast<int>(syscall(SYS_fdatasync, file));
}
extern "C" int fsync(int file) {
    ++syncs;
    return static_cast<int>(syscall(SYS_fsync, file));
}
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (simulated != 0 && clock == CLOCK_REALTIME) {
        *time = {simulated, 0};
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

namespace {

std::mt19937 source{std::random_device()()};

bool drops_interpreter = false;

reporter::reports_storage& store() {
    static const auto storage = reporter::open_reports_storage(drops_interpreter);
    return *storage;
}

void save(const std::string& content, unsigned aggregationid) {
    if (store().save_report({1, 1, {content.begin(), content.end()}, aggregationid}) == 0) {
        throw std::runtime_error("a report was refused");
    }
}

// Does not compress.
std::string random_bytes() {
    std::string bytes(REPORT_SIZE, '\0');
    std::generate(bytes.begin(), bytes.end(), [] { return static_cast<char>(source()); });
    return bytes;
}

// Compresses to a third.
std::string text() {
    std::string words;
    while (words.size() < REPORT_SIZE) {
        words += "value " + std::to_string(source() % 1000) + ", ";
    }
    return words.substr(0, REPORT_SIZE);
}

void join() {
    reporter::ext_aggregation_data data{"caller", "hash"};
    if (store().ext_aggregation(data) == 0) {
        throw std::runtime_error("there is no report to join");
    }
}

long oldest_time() {
    static const long time = store().get_all_dispatch_times().front();
    return time;
}

unsigned current_id = 0;

void take_next_id() {
    static const auto ids = store().get_ids_by_dispatch_time(oldest_time());
    static std::size_t next = 0;
    current_id = ids.at(next++);
}

// A call that is measured, and a step before it that is not.
struct kind {
    std::function<void()> prepare, call;
};

const std::map<std::string, kind> kinds{
    {"save", {[] {}, [] { save(random_bytes(), 0); }}},
    {"save-own", {[] {}, [] { save(random_bytes(), static_cast<unsigned>(source() | 1)); }}},
    {"save-text", {[] {}, [] { save(text(), 0); }}},
    {"join", {[] { save(R"({"caller":"caller","filehash":"hash"})", 0); }, join}},
    {"first", {[] {}, [] { reporter::open_reports_storage()->get_all_dispatch_times(); }}},
    {"times", {[] {}, [] { store().get_all_dispatch_times(); }}},
    {"read", {take_next_id, [] { store().get_report_as_json(current_id); }}},
    {"ids", {take_next_id, [] { store().get_ids_by_dispatch_time(oldest_time()); }}},
    {"seal",
     {[] { save("x", 0); },
      [] { store().get_ids_by_dispatch_time(store().get_all_dispatch_times().back()); }}},
    {"remove", {take_next_id, [] { store().remove_report(current_id); }}},
};

double microseconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

long long sectors_written(const char* stat) {
    std::ifstream in(stat);
    long long value = 0;
    for (int column = 0; column < 7; ++column) {
        in >> value;
    }
    return in ? value : throw std::runtime_error(std::string(stat) + " is no statistics file");
}

void settle() {
    static const int directory = open(reporter::REPORTER_DATA_DIR.c_str(), O_RDONLY | O_CLOEXEC);
    if (syncfs(directory) != 0) {
        throw std::runtime_error("syncfs failed");
    }
}

void measure(const kind& kind) {
    syncs = bytes_written = 0;
    const double begin = microseconds();
    kind.call();
    std::printf("%lld %lld %.0f", syncs, bytes_written, microseconds() - begin);
}

void measure_on(const kind& kind, const char* stat) {
    // What the preparation left behind is written before the first look.
    settle();
    const long long sectors = sectors_written(stat);
    measure(kind);
    const long long returned = sectors_written(stat) - sectors;
    settle();
    std::printf(" %lld %lld", returned, sectors_written(stat) - sectors);
}

void measure_all(const kind& kind, int count, const char* stat) {
    for (int made = 0; made < count; ++made) {
        kind.prepare();
        stat != nullptr ? measure_on(kind, stat) : measure(kind);
        std::printf("\n");
    }
}

// Begins at noon, long before the night.
void overload(int rate) {
    constexpr std::time_t noon = 1800014400;
    double longest = 0;
    for (simulated = noon; simulated < noon + 3600; ++simulated) {
        for (int saved = 0; saved < rate; ++saved) {
            const double begin = microseconds();
            save(random_bytes(), 0);
            longest = std::max(longest, microseconds() - begin);
        }
        if (simulated % 600 == 599) {
            store().get_all_dispatch_times();
        }
        if (simulated % 60 == 59) {
            std::printf("%ld %lld %.0f\n", (simulated - noon + 1) / 60,
                        reporter::size_file(reporter::REPORTER_DATA_DIR + "db_reports"), longest);
            longest = 0;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc != 3 && argc != 4) {
            throw std::runtime_error("usage: store_calls KIND COUNT [STAT]");
        }
        drops_interpreter = argc == 4;
        if (std::strcmp(argv[1], "overload") == 0) {
            overload(std::atoi(argv[2]));
        } else {
            measure_all(kinds.at(argv[1]), std::atoi(argv[2]), argc == 4 ? argv[3] : nullptr);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "store_calls: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
