// Fills the store of a device quickly: the interpreter, which a report source rebuilds for each
// report, is kept. usage: fill_store COUNT   at the device's paths, see tools/device-root
#include <cstdio>
#include <cstdlib>

#include <algorithm>
#include <exception>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "configuration.h"
#include "data_dir.h"
#include "lua_sandbox.h"
#include "storage/reports_storage.h"

namespace {

constexpr const char* STORAGE_SCRIPT = "processor_extension";
constexpr std::size_t REPORT_SIZE = 1024;

// Reports of 1 KiB that do not compress, no two alike.
void save_reports(int count) {
    const auto config =
        reporter::load_configuration(reporter::REPORTER_DATA_DIR + "config",
                                     reporter::REPORTER_DATA_DIR + "lua", {STORAGE_SCRIPT});
    reporter::lua_sandbox sandbox(config, config.get_script(STORAGE_SCRIPT).content);
    const auto storage = reporter::reports_storage::make(std::move(sandbox), false);
    std::mt19937 random;
    reporter::report report{1, 1, std::vector<unsigned char>(REPORT_SIZE), 0};
    for (int saved = 0; saved < count; ++saved) {
        std::generate(report.content.begin(), report.content.end(),
                      [&random] { return static_cast<unsigned char>(random()); });
        if (storage->save_report(report) == 0) {
            throw std::runtime_error("a report was refused");
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        save_reports(argc == 2 ? std::atoi(argv[1]) : 0);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fill_store: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
