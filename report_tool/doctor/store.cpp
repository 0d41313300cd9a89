#include <ctime>

#include <exception>

#include "data_dir.h"
#include "doctor/examination.h"
#include "output.h"
#include "store.h"

namespace report_tool::doctor {
namespace {

constexpr unsigned int longest_look_seconds = 30;
constexpr unsigned int longest_check_seconds = 60;

// True when the store may be opened without a change to it.
bool may_be_opened(group& points) {
    const store_obstacle obstacle = find_store_obstacle();
    if (obstacle.cause.empty()) {
        return true;
    }
    if (obstacle.cause == "absent" || obstacle.cause == "empty") {
        points.ok("file", "there is none yet: the next call makes it");
    } else if (obstacle.cause == "unfinished") {
        points.warning("file", obstacle.cause, obstacle.text + ": not opened",
                       "nothing: the next call of the agent rolls it back");
    } else if (obstacle.cause == "unreadable") {
        points.fault("file", obstacle.cause, obstacle.text, "give it to the agent's user");
    } else {
        points.fault("file", obstacle.cause, obstacle.text,
                     "the next call sets it aside and begins a fresh store: copy it before");
    }
    return false;
}

void tell_error(group& points, const Json::Value& look) {
    const std::string text = look["error"].asString();
    if (look["foreign"].asBool() || look["damaged"].asBool()) {
        points.fault("file", look["foreign"].asBool() ? "foreign" : "damaged", text,
                     "the next call sets it aside and begins a fresh store: copy it before");
    } else {
        points.fault("file", "unusable", text, "see what the message names");
    }
}

void examine_version(group& points, const Json::Value& look) {
    const auto version = look["version"].asInt(), newest = look["newest_version"].asInt();
    const std::string found = "a report store of version " + std::to_string(version);
    if (version > newest) {
        points.fault("file", "newer", found + ", newer than the script's " + std::to_string(newest),
                     "install the script that made it");
    } else if (version < newest) {
        points.ok("file", found + ", which the next call brings to " + std::to_string(newest));
    } else {
        points.ok("file", found);
    }
}

void examine_size(group& points, const Json::Value& look) {
    const double size = look["size"].asDouble(), limit = look["limit"].asDouble();
    const std::string found = readable_size(size) + " of " +
                              (limit > 0 ? readable_size(limit) : "no bound") + ", " +
                              readable_size(look["free"].asDouble()) + " of it free";
    if (limit > 0 && size > limit) {
        points.warning("size", "above-bound", found,
                       "nothing: each save drops the oldest reports until it is within the bound");
    } else {
        points.ok("size", found);
    }
}

void examine_accounts(group& points, const Json::Value& look) {
    const Json::Value& accounts = look["accounts"];
    if (!accounts.isObject()) {
        points.warning("accounts", "missing", "the row of accounts is missing",
                       "nothing: the next call begins the accounts anew");
        return;
    }
    const auto of = [&](const char* name) { return accounts[name].asInt64(); };
    const Json::Int64 stored = look["stored"].asInt64();
    const Json::Int64 placed = stored + of("removed") + of("dropped_space") + of("dropped_age");
    const std::string found = "saved " + std::to_string(of("saved")) + ", stored " +
                              std::to_string(stored) + ", removed " +
                              std::to_string(of("removed")) + ", dropped " +
                              std::to_string(of("dropped_space") + of("dropped_age"));
    if (placed != of("saved")) {
        points.warning("accounts", "differ", found + ": they do not add up",
                       "somebody changed the store by hand: keep a copy for an examination");
    } else {
        points.ok("accounts", found);
    }
    if (of("refused") > 0) {
        points.warning("refused", "too-large",
                       "too large for the store: " + std::to_string(of("refused")),
                       "raise db_max_size, or make the reports smaller");
    }
    if (of("set_aside") > 0) {
        points.warning(
            "set_aside", "set-aside", "databases set aside: " + std::to_string(of("set_aside")),
            "`tev-report recover` saves what can be read of db_reports.broken; look into "
            "db_reports.foreign.*; then delete them");
    }
}

void examine_times(examination& whole, group& points, const Json::Value& look) {
    const auto now = std::time(nullptr);
    Json::Int64 due = 0, later = 0, next = 0;
    for (const Json::Value& one : look["times"]) {
        const Json::Int64 time = one["time"].asInt64();
        (time <= now ? due : later) += one["reports"].asInt64();
        if (time > now && next == 0) {
            next = time;
        }
    }
    points.ok("times", std::to_string(due) +
                           (due == 1 ? " report is due, " : " reports are due, ") +
                           std::to_string(later) + " later" +
                           (next == 0 ? "" : ", the next at " + readable_time(next)));
    if (look["newest"].isNumeric()) {
        whole.newest_report = look["newest"].asInt64();
    }
}

void examine_pages(examination& whole, group& points) {
    try {
        const Json::Value look =
            inspect_store(*whole.config, whole.script, "check", longest_check_seconds);
        const std::string found = look.get("check", look["error"]).asString();
        if (found == "ok") {
            points.ok("check", "SQLite finds no damage");
        } else {
            points.fault("check", "damaged", found,
                         "copy the store: the next call that meets the damage sets it aside");
        }
    } catch (const std::exception& error) {
        points.skipped("check", error.what());
    }
}

void examine_content(examination& whole, group& points) {
    const Json::Value look =
        inspect_store(*whole.config, whole.script, "store", longest_look_seconds);
    if (look.isMember("error")) {
        tell_error(points, look);
        return;
    }
    examine_version(points, look);
    if (!look.isMember("times")) {
        return;
    }
    examine_size(points, look);
    examine_accounts(points, look);
    examine_times(whole, points, look);
    if (whole.asked.deep) {
        examine_pages(whole, points);
    }
}

}  // namespace

void examine_store(examination& whole) {
    group points(whole, "store");
    if (whole.store == nullptr) {
        points.skipped("file", "the store's lock could not be had");
        return;
    }
    if (const std::string holder = holder_of(reporter::REPORTER_DATA_DIR + "db_reports");
        !holder.empty()) {
        points.fault("file", "locked", "the database is locked by " + holder,
                     "have that program end its transaction or close the database");
    } else if (!may_be_opened(points)) {
        return;
    } else if (whole.script.empty()) {
        points.skipped("file", "no script that runs");
    } else {
        try {
            examine_content(whole, points);
        } catch (const std::exception& error) {
            points.skipped("file", error.what());
        }
    }
}

}  // namespace report_tool::doctor
