#pragma once

#include <string>

#include <json/value.h>

namespace reporter {
class config_helper;
}

namespace report_tool {

/// Why the store must not be opened by who is to change nothing; empty when it may be.
struct store_obstacle {
    std::string cause;  ///< "absent", "empty", "unreadable", "damaged", "unfinished" or "foreign"
    std::string text;
};
store_obstacle find_store_obstacle();

/// What the storage script's read-only function `inspect` answers, in at most so many seconds.
/// Under the store's lock, and only without an obstacle. Throws std::runtime_error.
Json::Value inspect_store(const reporter::config_helper& config, const std::string& script,
                          const std::string& question, unsigned int seconds);

/// The same for the device's configuration and script, with the lock taken and an obstacle thrown.
Json::Value ask_store(const std::string& question);

}  // namespace report_tool
