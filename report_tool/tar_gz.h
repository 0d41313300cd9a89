#pragma once

#include <map>
#include <string>

namespace report_tool {

/// A compressed tar archive of these files, by name, each readable by its owner alone. Throws
/// std::runtime_error.
std::string make_archive(const std::map<std::string, std::string>& files);

}  // namespace report_tool
