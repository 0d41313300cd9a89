// Measures the calls of a store as the agent makes them, each with an interpreter of its own.
// usage: store_calls CALLS   at the device's paths, see tools/device-root
// Prints for each call its name and its microseconds of processor time. What it saves it also
// removes.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <random>
#include <utility>
#include <vector>

#include "storage/open_reports_storage.h"

namespace {

constexpr std::size_t REPORT_SIZE = 1024;

double microseconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

template <class Call>
auto timed(const char* name, Call call) {
    const double begin = microseconds();
    auto result = call();
    std::printf("%s %.0f\n", name, microseconds() - begin);
    return result;
}

void time_calls(int calls) {
    const auto storage = reporter::open_reports_storage();
    std::mt19937 random;
    reporter::report report{1, 1, std::vector<unsigned char>(REPORT_SIZE), 0};
    reporter::report alike = report;
    alike.aggregationid = 1;
    std::vector<unsigned int> saved{static_cast<unsigned int>(storage->save_report(alike))};
    for (int call = 0; call < calls; ++call) {
        std::generate(report.content.begin(), report.content.end(),
                      [&random] { return static_cast<unsigned char>(random()); });
        saved.push_back(
            static_cast<unsigned int>(timed("save", [&] { return storage->save_report(report); })));
        timed("join", [&] { return storage->save_report(alike); });
    }
    for (int call = 0; call < calls; ++call) {
        timed("times", [&] { return storage->get_all_dispatch_times(); });
        timed("read", [&] { return storage->get_report_as_json(saved.back()); });
    }
    for (const unsigned int id : saved) {
        timed("remove", [&] { return storage->remove_report(id); });
    }
    const long time = storage->get_all_dispatch_times().front();
    for (int call = 0; call < 5; ++call) {
        timed("ids", [&] { return storage->get_ids_by_dispatch_time(time); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        time_calls(argc == 2 ? std::atoi(argv[1]) : 1);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "store_calls: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
