#pragma once

#include <memory>

#include "storage/reports_storage.h"

namespace reporter {

/// Name by which the storage script is found: the beginning of its file's.
inline constexpr const char* storage_script = "processor_extension";

/// The device's store, with the configuration and the storage script from their fixed places, for
/// programs that have reports sent. One a process. Without `release_when_idle` the interpreter
/// stays in memory between two operations, which saves time where many follow each other. Throws
/// configuration_exception, and std::runtime_error when the lock file is missing.
std::shared_ptr<reports_storage> open_reports_storage(bool release_when_idle = true);

}  // namespace reporter
