#include "storage/reports_storage.h"

#include <mutex>

#include "build_shared_mutex.h"
#include "lua/table_creator.h"
#include "stop_deadline.h"

namespace reporter {
namespace {

// Runs release() on every way out of an operation, before the lock is given up.
std::shared_ptr<int> make_release_guard(reports_storage& storage) {
    return {nullptr, [&storage](int*) { storage.release(); }};
}

std::unique_lock<file_lock> lock_store(file_lock& lock) {
    std::unique_lock<file_lock> locked(lock);
    REPORTER_INFO("mutex locked");
    return locked;
}

// The frame of an operation that calls the script. Members are destroyed in reverse: first the
// release, then the lock.
struct operation {
    operation(file_lock& lock, reports_storage& storage)
        : locked(lock_store(lock)), release_guard(make_release_guard(storage)) {}

    const std::unique_lock<file_lock> locked;
    const std::shared_ptr<int> release_guard;
};

}  // namespace

std::shared_ptr<reports_storage> reports_storage::make(lua_sandbox&& sandbox,
                                                       bool release_when_idle) {
    return std::make_shared<reports_storage>(std::move(sandbox), release_when_idle, private_tag());
}

reports_storage::reports_storage(lua_sandbox&& sandbox, bool release_when_idle, const private_tag&)
    : _lock(build_shared_mutex("tev_reporter_db_file_lock", process_role == "PROCESSOR")),
      _sandbox(std::move(sandbox)),
      _release_when_idle(release_when_idle) {
    REPORTER_INFO("reports_storage created");
}

long reports_storage::save_report(const report& record) {
    REPORTER_INFO("save_report func");
    const operation frame(*_lock, *this);
    const long result = _sandbox.get().call<long>("save_report", lua::report_table(record));
    REPORTER_INFO("save_report func result: " << result);
    return result;
}

long reports_storage::ext_aggregation(ext_aggregation_data& data) {
    REPORTER_INFO("save_ext_aggregation_data");
    const operation frame(*_lock, *this);
    return _sandbox.get().call<long>("ext_aggregation", lua::ext_table(data));
}

std::vector<long> reports_storage::get_all_dispatch_times() {
    REPORTER_INFO("get_all_dispatch_times");
    const operation frame(*_lock, *this);
    return _sandbox.get().call<std::vector<long>>("get_all_dispatch_times");
}

std::vector<unsigned int> reports_storage::get_ids_by_dispatch_time(long dispatch_time) {
    REPORTER_INFO("get_ids_by_dispatch_time");
    const auto guard = make_release_guard(*this);
    return _sandbox.get().call<std::vector<unsigned int>>("get_ids_by_dispatch_time",
                                                          dispatch_time);
}

reports_storage_cursor reports_storage::cursor(long dispatch_time) {
    REPORTER_INFO("cursor");
    const auto locked = lock_store(*_lock);
    const auto listed = get_ids_by_dispatch_time(dispatch_time);
    std::vector<unsigned int> free_ids;
    free_ids.reserve(listed.size() / 2);
    for (const unsigned int id : listed) {
        const auto busy = _busy_ids.count(id);
        REPORTER_INFO("id: " << id << " busy: " << busy);
        if (busy == 0) {
            free_ids.push_back(id);
        }
    }
    _busy_ids.insert(listed.begin(), listed.end());
    return {shared_from_this(), std::move(free_ids)};
}

std::string reports_storage::get_report_as_json(unsigned int id) {
    REPORTER_INFO("get_report_as_json");
    const operation frame(*_lock, *this);
    return _sandbox.get().call<std::string>("get_report_as_json_by_id", id);
}

std::vector<std::pair<unsigned int, unsigned int>> reports_storage::remove_reports(
    const std::vector<unsigned int>& ids) {
    REPORTER_INFO("storage::remove_reports: " << ids.size());
    const auto locked = lock_store(*_lock);
    std::vector<std::pair<unsigned int, unsigned int>> removed;
    for (const unsigned int id : ids) {
        try {
            _busy_ids.erase(id);
            removed.emplace_back(id, _sandbox.get().call<unsigned int>("remove_report_by_id", id));
            note_progress();
        } catch (const std::exception& error) {
            REPORTER_ERROR("can't remove report: " << id << " " << error.what());
        }
    }
    release();
    return removed;
}

std::vector<std::pair<unsigned int, unsigned int>> reports_storage::remove_report(unsigned int id) {
    return remove_reports({id});
}

void reports_storage::skip_report(unsigned int id) {
    REPORTER_INFO("skip_report");
    const auto locked = lock_store(*_lock);
    _busy_ids.erase(id);
    release();
    note_progress();
}

void reports_storage::release() {
    REPORTER_INFO("reports_storage::release");
    if (_release_when_idle && _busy_ids.empty()) {
        REPORTER_INFO("release lua sandbox");
        _sandbox.release();
    }
}

}  // namespace reporter
