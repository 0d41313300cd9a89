#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "file_lock.h"

namespace reporter {

/// Role of this process among those that share the store and the statistics. Only the process in
/// the role "PROCESSOR" creates the lock files; every other opens them.
inline constexpr std::string_view process_role = "PLUGIN";

/// The lock `name`, not taken yet. Its file is created anew with `create`, else it has to be there.
/// Logs and rethrows what the construction of a file_lock throws.
std::unique_ptr<file_lock> build_shared_mutex(const std::string& name, bool create);

}  // namespace reporter
