#pragma once

#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "file_lock.h"
#include "lua_sandbox.h"
#include "report.h"
#include "storage/reports_storage_cursor.h"

namespace reporter {

/// The store of reports: each operation is one call of a function of the storage script, made under
/// the inter-process lock of the store. Also keeps which reports are handed out to cursors, so that
/// no two hold the same one. Report ids are unsigned 32-bit, dispatch times seconds since the
/// epoch.
///
/// Any thread. Operations block for other processes' turns and for the throttle pause, and throw
/// lua_exception when the script fails and std::runtime_error when the lock does; nothing is
/// changed then and the lock is free.
class reports_storage : public std::enable_shared_from_this<reports_storage> {
    struct private_tag {
        explicit private_tag() = default;
    };

public:
    /// Takes the sandbox over. With `release_when_idle` the interpreter is dropped after each
    /// operation unless a cursor holds ids. Throws std::runtime_error when the lock file is
    /// missing: another process of the system makes it.
    static std::shared_ptr<reports_storage> make(lua_sandbox&& sandbox, bool release_when_idle);

    /// For make() only.
    reports_storage(lua_sandbox&& sandbox, bool release_when_idle, const private_tag& tag);
    reports_storage(const reports_storage&) = delete;
    reports_storage& operator=(const reports_storage&) = delete;

    /// The script's number: with the project's script the report's id, 0 when it was refused. An id
    /// beyond a `long` of 32 bits reads as its largest value.
    long save_report(const report& record);
    /// The script's number: with the project's script the new count of occurrences, 0 when there is
    /// no report to count with.
    long ext_aggregation(ext_aggregation_data& data);
    std::vector<long> get_all_dispatch_times();
    /// Only for who holds the store's lock, as cursor() does.
    std::vector<unsigned int> get_ids_by_dispatch_time(long dispatch_time);
    /// A cursor over the reports of one time that no other cursor holds.
    reports_storage_cursor cursor(long dispatch_time);
    std::string get_report_as_json(unsigned int id);

    /// Removes what it can: (id, the script's number) of each report that went, in input order. A
    /// report whose removal fails is logged and left out.
    std::vector<std::pair<unsigned int, unsigned int>> remove_reports(
        const std::vector<unsigned int>& ids);
    std::vector<std::pair<unsigned int, unsigned int>> remove_report(unsigned int id);
    /// Offers the report to later cursors again.
    void skip_report(unsigned int id);

    /// Drops the interpreter if that is wanted and no cursor holds ids. Only for who holds the
    /// lock.
    void release();

private:
    std::unique_ptr<file_lock> _lock;
    lua_sandbox _sandbox;
    std::unordered_set<unsigned int> _busy_ids;
    const bool _release_when_idle;
};

}  // namespace reporter
