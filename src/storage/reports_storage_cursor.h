#pragma once

#include <memory>
#include <string>
#include <vector>

namespace Json {
class Value;
}

namespace reporter {

class reports_storage;

/// The reports of one dispatch time, read one at a time; they are offered to no other cursor until
/// this one is destroyed. Made by reports_storage::cursor, moved only before it is walked, used by
/// one thread.
///
///     while (cursor.has_next()) { use(cursor.to_json()); }
class reports_storage_cursor {
public:
    reports_storage_cursor(std::shared_ptr<reports_storage> storage,
                           std::vector<unsigned int>&& ids);
    reports_storage_cursor(const reports_storage_cursor&) = delete;
    reports_storage_cursor& operator=(const reports_storage_cursor&) = delete;
    reports_storage_cursor(reports_storage_cursor&& other) noexcept;
    reports_storage_cursor& operator=(reports_storage_cursor&&) = delete;
    /// Hands every report back, removed ones included. A failure in it ends the process.
    ~reports_storage_cursor();

    /// Steps to the next report, at first to the first; false past the last.
    bool has_next();

    // Of the current report. The first three throw std::runtime_error "has not next" past the end
    // and what the storage throws; to_json also throws when the text is not JSON.

    unsigned int get_id() const;
    std::string next_as_json() const;
    Json::Value to_json();
    /// Only after a has_next() that gave true.
    void remove();

    /// Number of reports, removed ones included.
    int size() const { return static_cast<int>(_ids.size()); }
    /// Bytes of the text that to_json() read last, 0 before the first.
    unsigned int get_json_size() const { return _json_size; }
    std::shared_ptr<reports_storage>& get_db() { return _storage; }

private:
    std::vector<unsigned int> _ids;
    bool _started = false;
    int _index = 0;
    std::shared_ptr<reports_storage> _storage;
    unsigned int _json_size = 0;
};

}  // namespace reporter
