#pragma once

#include <optional>
#include <string>

namespace report_tool {

/// Makes this process that of the data directory's owner, whose files the agent works with: root
/// becomes it, anybody else is refused, so that nothing is left which the agent cannot open. False
/// when there is no data directory, and so nobody to become. Throws refusal.
bool become_owner();

/// The same for what needs the directory. Also throws std::runtime_error when there is none.
void require_owner();

/// A file of the data directory; nothing where there is none. Throws std::runtime_error when it
/// cannot be read.
std::optional<std::string> read_device_file(const std::string& name);

}  // namespace report_tool
