#pragma once

#include <memory>
#include <string>
#include <vector>

namespace Json {
class Value;
}

namespace reporter {

class reports_storage;

/// The reports of one dispatch time, read one at a time. They are offered to no other cursor until
/// this one is destroyed. Made by reports_storage::cursor; moved only before it is walked; used by
/// one thread, which holds no file_lock.
///
///     while (cursor.has_next()) { use(cursor.to_json()); }
class reports_storage_cursor {
public:
    /// For reports_storage::cursor, which has marked the ids as handed out.
    reports_storage_cursor(std::shared_ptr<reports_storage> storage,
                           std::vector<unsigned int>&& ids);
    reports_storage_cursor(const reports_storage_cursor&) = delete;
    reports_storage_cursor& operator=(const reports_storage_cursor&) = delete;
    reports_storage_cursor(reports_storage_cursor&& other) noexcept;
    reports_storage_cursor& operator=(reports_storage_cursor&&) = delete;
    /// Hands every report back, removed ones included. Waits for the store's lock once for each. A
    /// failure in it ends the process.
    ~reports_storage_cursor();

    /// Steps to the next report, at first to the first; false past the last.
    bool has_next();

    // Of the current report. The first three throw std::runtime_error "has not next" past the end,
    // and what the storage throws. After a failure the walk goes on with has_next().

    unsigned int get_id() const;
    /// The script's text, read anew at each call, which takes a throttle pause.
    std::string next_as_json() const;
    /// The same, parsed. Throws std::runtime_error when the text is not JSON.
    Json::Value to_json();
    /// Removes the report from the store. Only after a has_next() that gave true. A failure is
    /// logged.
    void remove();

    /// Number of reports, removed ones included.
    int size() const { return static_cast<int>(_ids.size()); }
    /// Bytes of the text that to_json() read last, 0 before the first.
    unsigned int get_json_size() const { return _json_size; }
    /// The store that the reports are of, shared with this cursor.
    std::shared_ptr<reports_storage>& get_db() { return _storage; }

private:
    std::vector<unsigned int> _ids;
    bool _started = false;
    int _index = 0;  ///< the current report, or past the end
    std::shared_ptr<reports_storage> _storage;
    unsigned int _json_size = 0;
};

}  // namespace reporter
