#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "configuration.h"

namespace reporter {

class reports_storage;

namespace modules {

inline constexpr const char* report_sender_module_name = "report_sender_module";

/// Source of its entries in the journal.
inline constexpr const char* journal_source = "sender";

/// One sending cycle: gates, due dispatch times, chunks, hash pre-check, post, removal. The policy
/// of the module host: run_impl() on its thread, stop() from any other. Defined over four files.
class report_sender_module_policy {
public:
    /// Copies `config`, the "sender" section of the configuration, and shares the storage. Reads no
    /// setting.
    report_sender_module_policy(const config_helper& config,
                                std::shared_ptr<reports_storage>& storage);
    /// Only before run_impl().
    report_sender_module_policy(report_sender_module_policy&& other) noexcept;
    report_sender_module_policy& operator=(report_sender_module_policy&&) = delete;
    ~report_sender_module_policy() = default;

    /// The whole cycle, once. Its failures are journaled and logged. It throws only when a gate's
    /// setting cannot be read.
    void run_impl();

    /// Makes run_impl() return soon: nothing new is sent, and a transfer under way is broken off.
    /// Does not wait. One-way.
    void stop();

    // The steps of a cycle, on the sender's thread; public for their tests. What they throw ends
    // the cycle: http_session_exception for the transport, std::exception for the rest. Reports not
    // removed by then stay in the store.

    /// Cuts the cursor's reports into chunks below "max_body_size" bytes. A report that cannot be
    /// read is journaled and passed over.
    template <class Cursor>
    void process_cursor(Cursor& cursor);

    /// Pre-checks and sends one chunk and removes what the server took or refused for good.
    template <class Cursor, class Chunk>
    void process_chunk(Cursor& cursor, Chunk& chunk);

    /// Removes the reports whose content the server says it has, from the store and the chunk.
    /// Failures are logged; the chunk then stays as it stood at that moment. Each report that was
    /// looked at has lost its "check_hash".
    template <class Cursor, class Reports>
    void check_hashes(Cursor& cursor, Reports& reports);

    /// The device header that every request carries.
    Json::Value create_header() const;

    /// Text of an upload. The reports move into it; of each only what the statistics need is left.
    std::string build_request(std::vector<Json::Value>& reports) const;

    /// Text of a hash pre-check.
    std::string build_request(const std::vector<std::string>& hashes) const;

private:
    /// Asks the gates, in order, and logs the first that is closed.
    bool may_send();
    /// `now` in seconds since 1970: a time that is not later is due.
    void send_due_reports(long now);
    void send_time(long dispatch_time);

    template <class Cursor, class Chunk>
    void send_reports(Cursor& cursor, Chunk& chunk);

    /// The "sender" section. Used on the sender's thread only.
    config_helper _config;
    /// Read at the points where the cycle may end. Never taken back.
    std::atomic<bool> _stopped{false};
    std::shared_ptr<reports_storage> _storage;
};

}  // namespace modules
}  // namespace reporter
