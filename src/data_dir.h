#pragma once

#include <string>

namespace reporter {

/// The plug-in's data directory, with its trailing slash. Changed only before threads start.
extern std::string REPORTER_DATA_DIR;

/// Directory of the configuration files.
inline constexpr const char* config_dir = "/opt/data/dpm/dplugins/tev-reporter-plugin/config";

/// Puts `prefix` in front of the data directory's current value; a second call adds a second
/// prefix. The configuration's directory, the journal and the statistics stay where they are.
void set_reporter_data_prefix(const std::string& prefix);

}  // namespace reporter
