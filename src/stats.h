#pragma once

#include <memory>
#include <string>

#include <json/value.h>

#include "file_lock.h"
#include "report.h"

namespace reporter {

/// Counters per event and report module, kept as JSON across runs. The system's other processes
/// share the file, under an inter-process lock. Its methods may be called by any thread that holds
/// no file_lock.
class stats {
public:
    /// Throws std::runtime_error when the lock file is missing; `path` is not touched yet.
    explicit stats(const std::string& path);

    /// Adds `count` to the event `name` of the report's module, in the file. Waits for the lock
    /// without limit. A failure is logged and gives false. What could not be written does not show;
    /// this object counts on from what it knows. A counter stops at the limits of 64 bits.
    bool add_event(const std::string& name, int count, const report& r);

    std::string get_path() const { return _path; }

private:
    /// Takes over what the file holds. Keeps what this object knows where that cannot be read.
    void load();
    /// Counts in what this object knows, not in the file.
    void count_event(const std::string& name, int count, const report& r);

    std::string _path;
    /// The file as this object knows it.
    Json::Value _content;
    std::unique_ptr<file_lock> _lock;
};

// The statistics of the process. All five functions are for one thread, the sender's, or for
// threads that take turns: nothing guards the object against removal under a caller. It is made on
// first use and lives until remove_stats. The end of the process does not destroy it, as what it
// logs through may be gone by then.

/// Makes the object anew. Throws what the construction of a stats throws; there is none then.
void init_stats();

/// The object, made at the first call; nullptr after remove_stats. When making it failed, which is
/// thrown, the next call tries again.
stats* get_stats();

/// Counts an event of the report's module, or of none. Nothing happens after remove_stats. Throws
/// only as get_stats does.
void add_event(const std::string& name, int count, const report& r);
void add_event(const std::string& name, int count);

/// Destroys the object for good; the file stays.
void remove_stats();

}  // namespace reporter
