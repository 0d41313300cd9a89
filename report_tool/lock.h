#pragma once

#include <string>

namespace report_tool {

/// Where the lock files are, with the trailing slash.
inline constexpr const char* lock_dir = "/run/user/5001/";
inline constexpr const char* store_lock = "tev_reporter_db_file_lock";
inline constexpr const char* stats_lock = "tev_reporter_stats_file_lock";

/// One of the agent's lock files, open and locked while this lives. Differs from file_lock in that
/// it waits no longer than five seconds, and that whoever waits for it has a turn afterwards. One
/// at a time for each file.
class held_lock {
public:
    /// Throws failure: "missing", "access" when it cannot be opened, or "held", with who holds it.
    explicit held_lock(const std::string& name);
    held_lock(const held_lock&) = delete;
    held_lock& operator=(const held_lock&) = delete;
    ~held_lock();

private:
    int _descriptor;
};

/// Process that holds a lock anywhere in the file and still does after five seconds, as "process
/// 123 (sqlite3)"; empty when there is none or the file cannot be opened. Not for a file that this
/// process has locked: a look drops its locks.
std::string holder_of(const std::string& path);

}  // namespace report_tool
