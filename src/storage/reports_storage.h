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

/// The store of reports. Each operation is one call of a function of the storage script, made under
/// the inter-process lock of the store. The object also keeps which reports are handed out to
/// cursors, so that no two hold the same one. Report ids are unsigned 32-bit, dispatch times
/// seconds since 1970.
///
/// Any thread that holds no file_lock; one operation at a time, whichever the thread. An operation
/// waits for other processes' turns without limit, and for the throttle pause. It throws
/// lua_exception when the script fails, what the configuration throws for a missing setting, and
/// std::runtime_error when the lock fails, after which no operation works any more. Nothing is
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

    /// For make() only, which alone has the tag.
    reports_storage(lua_sandbox&& sandbox, bool release_when_idle, const private_tag& tag);
    reports_storage(const reports_storage&) = delete;
    reports_storage& operator=(const reports_storage&) = delete;

    /// Saves a copy of the record. Gives the script's number: with the project's script the
    /// report's id, or 0 when it was refused. An id beyond a `long` of 32 bits reads as its largest
    /// value. Without memory for the interpreter's first copy of the content the process ends; the
    /// script needs some four more, and without them it fails.
    long save_report(const report& record);
    /// Counts another occurrence of a stored report. Gives the script's number: with the project's
    /// script the new count of occurrences, or 0 when there is no report to count with.
    long ext_aggregation(ext_aggregation_data& data);
    /// The times for which reports are stored, due or not, in the script's order.
    std::vector<long> get_all_dispatch_times();
    /// The ids of one time, in the order in which they are to be sent. It takes no lock: the caller
    /// holds the store's, as cursor() does.
    std::vector<unsigned int> get_ids_by_dispatch_time(long dispatch_time);
    /// A cursor over the reports of one time that no other cursor holds. It shares this object.
    reports_storage_cursor cursor(long dispatch_time);
    /// The script's text of the report, not parsed. An unknown id throws as the script does.
    std::string get_report_as_json(unsigned int id);

    /// Removes what it can, each report in a call of its own. Gives (id, the script's number) of
    /// each that went, in input order. A report whose removal fails is logged, left out and stays
    /// stored.
    std::vector<std::pair<unsigned int, unsigned int>> remove_reports(
        const std::vector<unsigned int>& ids);
    /// The same for one report.
    std::vector<std::pair<unsigned int, unsigned int>> remove_report(unsigned int id);
    /// Offers the report to later cursors again. Does not call the script, so there is no pause.
    void skip_report(unsigned int id);

    /// Drops the interpreter if that is wanted and no cursor holds ids. The caller holds the lock.
    void release();

private:
    /// Guards all below, between threads and between processes.
    std::unique_ptr<file_lock> _lock;
    lua_sandbox _sandbox;
    std::unordered_set<unsigned int> _busy_ids;  ///< handed out to cursors, not removed yet
    const bool _release_when_idle;
};

}  // namespace reporter
