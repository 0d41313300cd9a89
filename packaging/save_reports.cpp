// Saves the three reports that the test of the packages sends. Built from the installed headers and
// library alone, as a program of the device is.
#include <cstdint>

#include <data_dir.h>
#include <filter.h>
#include <lua_sandbox.h>
#include <report.h>
#include <storage/reports_storage.h>
#include <sys_info.h>

int main() {
    using namespace reporter;
    const auto config = load_configuration(REPORTER_DATA_DIR + "config", REPORTER_DATA_DIR + "lua",
                                           {"processor_extension"});
    const auto storage = reports_storage::make(
        lua_sandbox(config, config.get_script("processor_extension").content), true);
    default_filter takes_in(get_sys_info());
    for (const std::uint32_t id : {4294967293, 4294967294, 4294967295}) {
        const report record{7, 1, {'t', 'e', 'x', 't'}, id};
        if (!takes_in(record) || storage->save_report(record) == 0) {
            return 1;
        }
    }
}
