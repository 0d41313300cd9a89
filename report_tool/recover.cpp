#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <algorithm>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "configuration.h"
#include "data_dir.h"
#include "json_io.h"
#include "lock.h"
#include "lua_sandbox.h"
#include "output.h"
#include "owner.h"
#include "recovered_ids.h"
#include "storage/open_reports_storage.h"
#include "store.h"

namespace report_tool {
namespace {

struct tally {
    Json::Int64 reports = 0;
    Json::Int64 occurrences = 0;
};

// The script's side of it, one step for each call, with the agent's pause.
class set_aside_store {
public:
    explicit set_aside_store(std::string path)
        : _path(std::move(path)),
          _config(load_device()),
          _sandbox(_config, _config.get_script(reporter::storage_script).content) {
        if (!_sandbox.get().is_function("recover")) {
            throw std::runtime_error(
                "the storage script has no function recover: install the one that is shipped");
        }
    }
    Json::Value look(double from) { return ask(from, false); }
    Json::Value save(double from) { return ask(from, true); }

private:
    Json::Value ask(double from, bool save) {
        Json::Value request;
        request["path"] = _path;
        request["from"] = from;
        request["save"] = save;
        const held_lock lock(store_lock);
        return call_script(_sandbox, "recover", reporter::json_compact(request));
    }

    std::string _path;
    reporter::config_helper _config;
    reporter::lua_sandbox _sandbox;
};

std::string absolute(const std::string& name) {
    const std::unique_ptr<char, decltype(&std::free)> path(realpath(name.c_str(), nullptr),
                                                           std::free);
    if (path == nullptr || access(path.get(), R_OK) != 0) {
        throw std::runtime_error(name + " cannot be read by the data directory's owner, " +
                                 error_text(errno) +
                                 ". Expected a store that was set aside, as db_reports.broken");
    }
    struct stat asked {
    }, present{};
    stat(path.get(), &asked);
    if (stat((reporter::REPORTER_DATA_DIR + "db_reports").c_str(), &present) == 0 &&
        asked.st_dev == present.st_dev && asked.st_ino == present.st_ino) {
        throw std::runtime_error(name + " is the present store: there is nothing to recover");
    }
    if (!S_ISREG(asked.st_mode)) {
        throw std::runtime_error(name + " is no file");
    }
    return path.get();
}

class recovery {
public:
    recovery(const std::string& path, bool speaks) : _store(path), _speaks(speaks) {}

    // Goes on behind what an earlier run has done.
    void run() {
        Json::Value next = _store.look(0);
        _expected = next;
        double from = 0;
        while (next.isMember("go_on") || next.isMember("report")) {
            from = next.isMember("report") ? next["report"]["id"].asDouble()
                                           : next["go_on"].asDouble();
            if (next.isMember("report") && _done.behind(from) == from) {
                break;
            }
            from = next.isMember("report") ? _done.behind(from) : from;
            next = _store.look(from);
        }
        if (next.isMember("report")) {
            save_from(from);
        }
    }

    Json::Value result() const {
        Json::Value document;
        document["saved"] = document["occurrences"] = 0;
        document["modules"] = Json::Value(Json::objectValue);
        document["unreadable"] = static_cast<Json::Int64>(_unreadable);
        for (const auto& [module, count] : _modules) {
            document["saved"] = document["saved"].asInt64() + count.reports;
            document["occurrences"] = document["occurrences"].asInt64() + count.occurrences;
            document["modules"][module]["saved"] = count.reports;
            document["modules"][module]["occurrences"] = count.occurrences;
        }
        // What the file itself tells, where that can be read.
        document["reports_told"] = _expected["reports"];
        document["occurrences_told"] = _expected["stored"];
        return document;
    }

private:
    void save_from(double first) {
        for (double from = first;;) {
            const Json::Value step = _store.save(from);
            if (step.isMember("report")) {
                const Json::Value& report = step["report"];
                _done.add(first, report["id"].asDouble());
                note(report, step["saved"].asBool());
                from = std::max(from, report["id"].asDouble()) + 1;
            } else if (step.isMember("go_on")) {
                from = step["go_on"].asDouble();
            } else {
                return;
            }
        }
    }

    void note(const Json::Value& report, bool saved) {
        if (saved) {
            tally& count = _modules[std::to_string(report["module"].asInt64())];
            ++count.reports;
            count.occurrences += report["count"].asInt64();
        } else {
            ++_unreadable;
        }
        ++_seen;
        if (_speaks) {
            std::cout << '\r' << _seen << " reports of "
                      << (_expected["reports"].isNumeric() ? _expected["reports"].asString() : "?")
                      << " looked at, " << _unreadable << " not whole" << std::flush;
        }
    }

    set_aside_store _store;
    recovered_ids _done;
    bool _speaks;
    Json::Value _expected;
    std::map<std::string, tally> _modules;
    long _seen = 0;
    long _unreadable = 0;
};

bool has_found(const Json::Value& result) {
    return result["saved"] != 0 || result["unreadable"] != 0;
}

void print_result(const Json::Value& result) {
    if (!has_found(result)) {
        std::cout << "nothing is left to save: all that can be read of it was saved before\n";
        return;
    }
    table rows({"module", "saved", "occurrences"});
    for (const std::string& module : result["modules"].getMemberNames()) {
        rows.add({module, result["modules"][module]["saved"].asString(),
                  result["modules"][module]["occurrences"].asString()});
    }
    if (!result["modules"].empty()) {
        rows.print();
    }
    std::cout << "\nsaved " << counted(result["saved"].asUInt(), "report") << " with "
              << counted(result["occurrences"].asUInt(), "occurrence")
              << ", not whole: " << result["unreadable"].asString();
    if (result["occurrences_told"].isUInt()) {
        std::cout << "; by its accounts the file held "
                  << counted(result["occurrences_told"].asUInt(), "occurrence");
    }
    std::cout << "\nEach is a new report with a new uid, by which a server that has it does not "
                 "know it again.\n";
}

int recover_file(const std::string& name, const common_options& options) {
    require_owner();
    const bool speaks = !options.json && isatty(STDOUT_FILENO) == 1;
    recovery work(absolute(name), speaks);
    std::exception_ptr failure;
    try {
        work.run();
    } catch (const std::exception&) {
        failure = std::current_exception();
    }
    std::cout << (speaks ? "\n" : "");
    const Json::Value result = work.result();
    if (failure == nullptr || has_found(result)) {
        options.json ? print_json(result) : print_result(result);
    }
    if (failure != nullptr) {
        // What was saved is noted: a later run goes on behind it.
        std::rethrow_exception(failure);
    }
    return done;
}

}  // namespace

command recover_command() {
    const auto name = std::make_shared<std::string>();
    const auto add_options = [name](CLI::App& app) {
        app.add_option("FILE", *name, "A store that was set aside, as db_reports.broken")
            ->required();
    };
    return {"recover", "Saves what can be read of a set-aside store into the present one",
            add_options,
            [name](const common_options& options) { return recover_file(*name, options); }};
}

}  // namespace report_tool
