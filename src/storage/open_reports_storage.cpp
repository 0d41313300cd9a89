#include "storage/open_reports_storage.h"

#include "configuration.h"
#include "data_dir.h"
#include "lua_sandbox.h"

namespace reporter {

// The script does not run here but with the first operation, which holds the store's lock.
std::shared_ptr<reports_storage> open_reports_storage(bool release_when_idle) {
    const auto config = load_configuration(config_dir, REPORTER_DATA_DIR + "lua", {storage_script});
    return reports_storage::make(lua_sandbox(config, config.get_script(storage_script).content),
                                 release_when_idle);
}

}  // namespace reporter
