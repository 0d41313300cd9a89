#pragma once

#include <memory>
#include <string>

#include <json/value.h>

#include "lock.h"

namespace reporter {
class config_helper;
class lua_sandbox;
class reports_storage;
}  // namespace reporter

namespace report_tool {

/// What to do, at the end of an error's text.
inline constexpr const char* see_doctor = ": see what `tev-report doctor` says";

/// Why the store must not be opened by a command that changes nothing; empty when it may be.
struct store_obstacle {
    std::string cause;  ///< "absent", "empty", "unreadable", "damaged", "unfinished" or "foreign"
    std::string text;
};
store_obstacle find_store_obstacle();

/// The device's configuration with its storage script. Throws std::runtime_error.
reporter::config_helper load_device();

/// What the storage script's read-only function `inspect` answers, in at most so many seconds.
/// Under the store's lock, and only without an obstacle. Throws std::runtime_error.
Json::Value inspect_store(const reporter::config_helper& config, const std::string& script,
                          const std::string& question, unsigned int seconds);

/// What a function of the script from text to text answers to a JSON document. Throws
/// std::runtime_error.
Json::Value call_script(reporter::lua_sandbox& sandbox, const char* function,
                        const std::string& text);

/// The same for the device's configuration and script, with the lock taken. Throws an
/// obstacle as failure.
Json::Value ask_store(const std::string& question);
/// The same; an empty object while there is no store.
Json::Value ask_store_if_any(const std::string& question);

/// Whether the device's storage script has that function. Throws std::runtime_error when the
/// script does not load.
bool can_inspect();

/// The device's store with the storage script's six functions, which stays open in memory. Each
/// operation goes through in_turn(). Throws std::runtime_error.
std::shared_ptr<reporter::reports_storage> open_store();

/// Does one operation of the store, which would wait for its lock without a limit, once the lock is
/// free: not later than in five seconds. Throws failure, like held_lock.
template <class Operation>
auto in_turn(Operation operation) {
    const held_lock turn(store_lock);
    return operation();
}

}  // namespace report_tool
