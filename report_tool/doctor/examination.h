#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

#include "configuration.h"
#include "lock.h"
#include "output.h"

namespace report_tool::doctor {

enum class state { ok, warning, fault, closed, skipped };

/// One thing that was looked at. `cause` is a fixed word for what is wrong, for programs; empty
/// where nothing is. `advice` says what to do.
struct point {
    std::string group;
    std::string name;
    state how;
    std::string cause;
    std::string found;
    std::string advice;
};

struct options {
    bool offline = false;
    bool deep = false;
    bool ask = false;
    unsigned int timeout_seconds = 10;
};

/// From when to when a certificate holds, seconds since 1970.
struct validity {
    std::string name;
    long long from;
    long long until;
};

/// A walk through one installation, in the agent's own order: what was found, and what the groups
/// of points need of those before them.
struct examination {
    options asked;
    bool data_dir_exists = false;
    std::vector<point> points{};

    std::optional<reporter::config_helper> config{};  ///< where a file could be used
    bool gates_open = false;
    std::unique_ptr<held_lock> store{};  ///< once it is locked
    std::string script{};                ///< text of one that loads and has its functions
    std::optional<long long> newest_report{};
    std::vector<validity> certificates{};
    bool credentials_usable = false;
};

/// Adds the points of one group.
class group {
public:
    group(examination& whole, const char* name) : _whole(whole), _name(name) {}

    void ok(const std::string& name, const std::string& found) {
        add(name, state::ok, "", found, "");
    }
    void warning(const std::string& name, const std::string& cause, const std::string& found,
                 const std::string& advice) {
        add(name, state::warning, cause, found, advice);
    }
    void fault(const std::string& name, const std::string& cause, const std::string& found,
               const std::string& advice) {
        add(name, state::fault, cause, found, advice);
    }
    void closed(const std::string& name, const std::string& cause, const std::string& found,
                const std::string& advice) {
        add(name, state::closed, cause, found, advice);
    }
    void skipped(const std::string& name, const std::string& why) {
        add(name, state::skipped, "", why, "");
    }

private:
    void add(const std::string& name, state how, const std::string& cause, const std::string& found,
             const std::string& advice) {
        _whole.points.push_back(
            {_name, printable(name), how, cause, printable(found), printable(advice)});
    }

    examination& _whole;
    const char* _name;
};

// The groups, in their order. Each adds its points and changes nothing on the device.

/// Which file is used, its errors, and every key.
void examine_configuration(examination& whole);
/// Sending, enrolment, consent.
void examine_gates(examination& whole);
/// Data directory, lock files, records; takes the store's lock, which the next two need.
void examine_files(examination& whole);
/// Which script runs, and whether it can.
void examine_script(examination& whole);
void examine_store(examination& whole);
/// Key, certificate, authorities.
void examine_credentials(examination& whole);
/// The clock, held against certificates and reports.
void examine_time(examination& whole);
/// Address, name, connection, TLS and, where asked for, both paths.
void examine_server(examination& whole);

}  // namespace report_tool::doctor

namespace report_tool {

/// The whole walk as JSON for programs, as the owner of the data directory.
Json::Value doctor_document(const doctor::options& asked);

}  // namespace report_tool
