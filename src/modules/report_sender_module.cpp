// The class report_sender_module_policy, first of four files: its cycle.
#include "modules/report_sender_module.h"

#include <malloc.h>

#include <chrono>
#include <ctime>
#include <utility>

#include "http_session.h"
#include "journal.h"
#include "json_io.h"
#include "logging.h"
#include "stop_deadline.h"
#include "storage/reports_storage.h"
#include "sys_info.h"

namespace reporter::modules {
namespace {

long now_in_seconds() {
    const std::chrono::nanoseconds since_epoch =
        std::chrono::system_clock::now().time_since_epoch();
    return static_cast<long>(since_epoch.count() / 1'000'000'000);
}

// Ends in a newline; empty for a time beyond the calendar.
std::string calendar_text(long seconds) {
    const std::time_t time = seconds;
    // Only this thread uses its one buffer. NOLINTNEXTLINE(concurrency-mt-unsafe)
    const char* text = std::ctime(&time);
    return text != nullptr ? text : "";
}

}  // namespace

report_sender_module_policy::report_sender_module_policy(const config_helper& config,
                                                         std::shared_ptr<reports_storage>& storage)
    : _config(config), _storage(storage) {
    REPORTER_INFO("config: " << json_styled(_config.root()) << "\n");
    REPORTER_INFO("_stopped= ? " << _stopped);
}

report_sender_module_policy::report_sender_module_policy(
    report_sender_module_policy&& other) noexcept
    : _config(std::move(other._config)),
      _stopped(other._stopped.load()),
      _storage(std::move(other._storage)) {}

void report_sender_module_policy::run_impl() {
    if (!may_send()) {
        _stopped = true;
        return;
    }
    REPORTER_INFO("report_sender_module_policy::start " << _stopped);
    const long now = now_in_seconds();
    REPORTER_INFO("now datetime: " << calendar_text(now));
    try {
        while (!_stopped) {
            send_due_reports(now);
            malloc_trim(0);
            _stopped = true;
        }
    } catch (const http_session_exception& error) {
        // Kept: "cann't", as the log's readers look for it.
        get_journal().add(journal_source, error.what());
        REPORTER_ERROR("cann't send: " << error.what());
    } catch (const std::exception& error) {
        get_journal().add(journal_source, error.what());
        REPORTER_ERROR("some_error: " << error.what());
    }
    _stopped = true;
    REPORTER_INFO("report_sender_module_policy::finish");
}

void report_sender_module_policy::stop() {
    _stopped = true;
    interrupt_all_http_sessions();
}

// Kept: an enrolled device sends even with sending switched off. Where registration is required,
// "reporter_sending" is not asked.
bool report_sender_module_policy::may_send() {
    if (!_config.get<bool>("reporter_registration") && !_config.get<bool>("reporter_sending")) {
        REPORTER_INFO("Sending reports canceled. Sending off via config");
        return false;
    }
    if (_config.get<bool>("reporter_registration") &&
        _config.get<std::string>("agent_registered_duid").empty()) {
        REPORTER_INFO("Sending reports canceled. Registration not completed");
        return false;
    }
    if (!get_user_agreement()) {
        REPORTER_INFO("Sending reports canceled. Waiting for user agreement");
        return false;
    }
    return true;
}

void report_sender_module_policy::send_due_reports(long now) {
    const std::vector<long> times = _storage->get_all_dispatch_times();
    // Kept: the spelling of the log.
    REPORTER_INFO("timestapms: " << times.size());
    for (const long time : times) {
        REPORTER_INFO("timestamp: " << time << ", datetime: " << calendar_text(time));
    }
    for (const long time : times) {
        if (time <= now) {
            // A stop waits for the time under way, but not for the walk over the times after it.
            if (_stopped) {
                disregard_progress();
            }
            send_time(time);
        }
    }
}

void report_sender_module_policy::send_time(long dispatch_time) {
    REPORTER_INFO("time expired: " << calendar_text(dispatch_time));
    reports_storage_cursor cursor = _storage->cursor(dispatch_time);
    REPORTER_INFO("count ids in cursor: " << cursor.size());
    if (cursor.size() == 0) {
        REPORTER_INFO("cursor is empty");
        return;
    }
    process_cursor(cursor);
}

}  // namespace reporter::modules
