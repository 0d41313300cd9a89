// Makes calls on the store of a device, each with an interpreter and a connection of its own.
// Prints for each call: syncs, bytes handed to pwrite, and the sectors of 512 bytes that the block
// device below had written, first at the call's return, then once the file system had nothing left
// to write.
//
// usage: flash_calls KIND COUNT STAT    KIND: see `kinds`; STAT: /sys/block/NAME/stat
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "data_dir.h"
#include "storage/open_reports_storage.h"

namespace {

constexpr std::size_t REPORT_SIZE = 1024;

long long syncs = 0, bytes_written = 0;

}  // namespace

// These count SQLite's calls and pass them on.
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

namespace {

using reporter::open_reports_storage;

std::mt19937 source{std::random_device()()};

void save(const std::string& content, unsigned aggregationid) {
    if (open_reports_storage()->save_report(
            {1, 1, {content.begin(), content.end()}, aggregationid}) == 0) {
        throw std::runtime_error("a report was refused");
    }
}

// Does not compress.
std::string random_bytes() {
    std::string bytes(REPORT_SIZE, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(source());
    }
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
    if (open_reports_storage()->ext_aggregation(data) == 0) {
        throw std::runtime_error("there is no report to join");
    }
}

long latest_time() {
    return open_reports_storage()->get_all_dispatch_times().back();
}

unsigned next_id() {
    static const auto ids = open_reports_storage()->get_ids_by_dispatch_time(latest_time());
    static std::size_t next = 0;
    return ids.at(next++);
}

void list() {
    const long time = latest_time();
    open_reports_storage()->get_report_as_json(next_id());
    open_reports_storage()->get_ids_by_dispatch_time(time);
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
    {"list", {next_id, list}},
    {"seal",
     {[] { save("x", 0); },
      [] { open_reports_storage()->get_ids_by_dispatch_time(latest_time()); }}},
    {"remove", {next_id, [] { open_reports_storage()->remove_report(next_id()); }}},
};

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

void measure(const kind& kind, int count, const char* stat) {
    for (int made = 0; made < count; ++made) {
        kind.prepare();
        settle();
        const long long sectors = sectors_written(stat);
        syncs = bytes_written = 0;
        kind.call();
        const long long returned = sectors_written(stat) - sectors;
        settle();
        std::printf("%lld %lld %lld %lld\n", syncs, bytes_written, returned,
                    sectors_written(stat) - sectors);
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc != 4) {
            throw std::runtime_error("usage: flash_calls KIND COUNT STAT");
        }
        measure(kinds.at(argv[1]), std::atoi(argv[2]), argv[3]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "flash_calls: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
