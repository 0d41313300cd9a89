// Fills the store of a device quickly: it keeps the interpreter, which a report source rebuilds for
// each report. usage: fill_store COUNT [SIZE]   at the device's paths, see tools/device-root
#include <cstdio>
#include <cstdlib>

#include <algorithm>
#include <exception>
#include <random>
#include <stdexcept>
#include <vector>

#include "storage/open_reports_storage.h"

namespace {

// Reports that do not compress, no two alike.
void save_reports(int count, std::size_t size) {
    const auto storage = reporter::open_reports_storage(false);
    std::mt19937 random;
    reporter::report report{1, 1, std::vector<unsigned char>(size), 0};
    for (int saved = 0; saved < count; ++saved) {
        std::generate(report.content.begin(), report.content.end(),
                      [&random] { return static_cast<unsigned char>(random()); });
        if (storage->save_report(report) == 0) {
            throw std::runtime_error("a report was refused");
        }
    }
    storage->get_all_dispatch_times();  // Makes the file also for no report.
}

}  // namespace

int main(int argc, char** argv) {
    try {
        save_reports(argc > 1 ? std::atoi(argv[1]) : 0,
                     argc > 2 ? static_cast<std::size_t>(std::atoi(argv[2])) : 1024);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fill_store: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
