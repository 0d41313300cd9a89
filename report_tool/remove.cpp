#include <iostream>
#include <memory>
#include <stdexcept>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "json_io.h"
#include "look.h"
#include "output.h"
#include "owner.h"
#include "progress.h"
#include "storage/reports_storage.h"
#include "store.h"

namespace report_tool {
namespace {

struct remove_options {
    std::vector<unsigned int> ids;
    bool yes = false;
};

// Shows those that there are on standard error.
std::vector<unsigned int> find_reports(const remove_options& wanted) {
    std::vector<unsigned int> found;
    table lines({"id", "module", "type", "count", "size", "last"});
    open_look(wanted.yes)->read(wanted.ids, [&](unsigned int id, const std::string* text) {
        if (text == nullptr) {
            std::cerr << "tev-report: no report has the id " << id
                      << ": `tev-report list` shows those that there are\n";
            return;
        }
        found.push_back(id);
        Json::Value report;
        reporter::json_read(*text, report, reporter::json_comments::skip);
        if (!report.isObject()) {
            report = Json::Value(Json::objectValue);
        }
        lines.add({std::to_string(id), text_of(report, "module"), text_of(report, "type"),
                   text_of(report, "count"), text_of(report, "size"),
                   time_of(report, "last_time")});
    });
    if (!found.empty() && !wanted.yes) {
        lines.print(std::cerr);
    }
    return found;
}

unsigned int remove_report(reporter::reports_storage& store, unsigned int id) {
    const auto removed = in_turn([&] { return store.remove_report(id); });
    if (removed.empty()) {
        throw std::runtime_error("report " + std::to_string(id) +
                                 " could not be removed: with --log the platform's log says why");
    }
    return removed.front().second;
}

// Up to the first that cannot be removed.
int remove_reports(const std::vector<unsigned int>& ids, const common_options& options) {
    const auto store = open_store();
    progress shown(ids.size(), ids.size());
    Json::Value all(Json::arrayValue);
    int status = done;
    try {
        for (const unsigned int id : ids) {
            Json::Value entry;
            entry["id"] = id;
            entry["occurrences"] = remove_report(*store, id);
            all.append(entry);
            shown.clear();
            if (!options.json) {
                std::cout << "removed " << id << ", "
                          << counted(entry["occurrences"].asUInt(), "occurrence") << '\n';
            }
            shown.step();
        }
    } catch (const std::exception& error) {
        std::cerr << "tev-report: " << error.what() << '\n';
        status = failed;
    }
    if (options.json) {
        print_json(all);
    }
    return status;
}

int remove(const remove_options& wanted, const common_options& options) {
    require_owner();
    const std::vector<unsigned int> found = find_reports(wanted);
    const std::string question =
        "Remove " + counted(found.size(), "report") + " for good, without sending?";
    if (found.empty() || (!wanted.yes && !is_confirmed(question))) {
        std::cerr << "tev-report: nothing was removed\n";
        return failed;
    }
    const int status = remove_reports(found, options);
    return found.size() == wanted.ids.size() ? status : failed;
}

}  // namespace

command remove_command() {
    const auto wanted = std::make_shared<remove_options>();
    const auto add_options = [wanted](CLI::App& app) {
        app.add_option("ID", wanted->ids, "Ids of reports, as list shows them")->required();
        app.add_flag("--yes", wanted->yes, "Do not ask");
    };
    return {"remove", "Remove reports for good, without sending them", add_options,
            [wanted](const common_options& options) { return remove(*wanted, options); }};
}

}  // namespace report_tool
