// Runs a Lua text in the sandbox of the storage script, with the natives and settings of a device.
// usage: run_script FILE   at the device's paths, see tools/device-root
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "common.h"
#include "configuration.h"
#include "data_dir.h"
#include "lua_sandbox.h"
#include "storage/open_reports_storage.h"

int main(int argc, char** argv) {
    try {
        const auto config = reporter::load_configuration(
            reporter::config_dir, reporter::REPORTER_DATA_DIR + "lua", {reporter::storage_script});
        reporter::lua_sandbox(config, reporter::read_file(argc == 2 ? argv[1] : "")).init();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "run_script: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
