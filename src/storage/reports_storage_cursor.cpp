#include "storage/reports_storage_cursor.h"

#include <stdexcept>
#include <utility>

#include <json/value.h>

#include "common.h"
#include "logging.h"
#include "storage/reports_storage.h"

namespace reporter {

reports_storage_cursor::reports_storage_cursor(std::shared_ptr<reports_storage> storage,
                                               std::vector<unsigned int>&& ids)
    : _ids(std::move(ids)), _storage(std::move(storage)) {
    REPORTER_INFO("Cursor::Cursor");
    for (const unsigned int id : _ids) {
        REPORTER_INFO("id: " << id);
    }
}

// The new cursor is not started: its next has_next() tests the position that was reached.
reports_storage_cursor::reports_storage_cursor(reports_storage_cursor&& other) noexcept
    : _ids(std::exchange(other._ids, {})),
      _index(std::exchange(other._index, 0)),
      // The source stays a cursor, without reports.
      // NOLINTNEXTLINE(performance-move-constructor-init)
      _storage(other._storage) {}

reports_storage_cursor::~reports_storage_cursor() {
    for (const unsigned int id : _ids) {
        _storage->skip_report(id);
    }
}

bool reports_storage_cursor::has_next() {
    if (_started) {
        ++_index;
    }
    _started = true;
    return _index < size();
}

unsigned int reports_storage_cursor::get_id() const {
    if (_index >= size()) {
        throw std::runtime_error("has not next");
    }
    return _ids[static_cast<std::size_t>(_index)];
}

std::string reports_storage_cursor::next_as_json() const {
    return _storage->get_report_as_json(get_id());
}

Json::Value reports_storage_cursor::to_json() {
    const std::string text = next_as_json();
    _json_size = static_cast<unsigned int>(text.size());
    REPORTER_INFO("parsing report, len: " << _json_size);
    return json_parse(text);
}

void reports_storage_cursor::remove() {
    _storage->remove_report(_ids[static_cast<std::size_t>(_index)]);
}

}  // namespace reporter
