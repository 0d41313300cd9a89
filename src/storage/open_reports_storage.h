#pragma once

#include <memory>

#include "storage/reports_storage.h"

namespace reporter {

/// The storage script is the file whose name begins so.
inline constexpr const char* storage_script = "processor_extension";

/// The device's store, with the configuration and the storage script from their fixed places, for
/// programs that have reports sent. Open one a process and keep it: closing a second would drop the
/// lock of the first. Both files are read here and never again, so a program that runs on after an
/// update keeps the old ones. The script does not run yet, so its faults show at the first
/// operation. Without `release_when_idle` the interpreter stays in memory between two operations,
/// which saves time where many follow each other. Throws configuration_exception, and
/// std::runtime_error when the lock file is missing.
std::shared_ptr<reports_storage> open_reports_storage(bool release_when_idle = true);

}  // namespace reporter
