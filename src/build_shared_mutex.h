#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "file_lock.h"

namespace reporter {

/// Role of this process among those that share the store and the statistics. Only the one in the
/// role "PROCESSOR" creates the lock files, every other opens them.
inline constexpr std::string_view process_role = "PLUGIN";

/// Makes the lock `name`, its file created anew or opened, and logs which. Logs and rethrows what
/// the construction of a file_lock throws.
std::unique_ptr<file_lock> build_shared_mutex(const std::string& name, bool create);

}  // namespace reporter
