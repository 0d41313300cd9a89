#include <iostream>
#include <memory>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "content.h"
#include "json_io.h"
#include "output.h"
#include "owner.h"
#include "progress.h"
#include "selection.h"

namespace report_tool {
namespace {

struct export_options {
    selection wanted;
    bool content = false;
};

bool print_line(unsigned int id, const Json::Value& time, const std::string& text, bool content) {
    Json::Value report;
    if (!reporter::json_read(text, report, reporter::json_comments::skip) || !report.isObject()) {
        std::cerr << "tev-report: report " << id << " is no JSON object: left out\n";
        return false;
    }
    if (content) {
        unpack_content(report);
    }
    report["id"] = id;
    report["time"] = time;
    print_json_line(report);
    return true;
}

int export_reports(const export_options& options) {
    require_owner();
    const auto store = open_look(options.wanted.yes);
    const std::vector<Json::Value> rows = options.wanted.reports_of(*store);
    std::vector<unsigned int> ids;
    ids.reserve(rows.size());
    for (const Json::Value& row : rows) {
        ids.push_back(row["id"].asUInt());
    }
    bool whole = true;
    std::size_t at = 0;
    progress shown(ids.size(), store->calls_for(ids.size()));
    store->read(ids, [&](unsigned int id, const std::string* text) {
        const Json::Value& row = rows[at++];
        shown.clear();
        // One that is gone meanwhile was sent.
        if (text != nullptr && !print_line(id, row["time"], *text, options.content)) {
            whole = false;
        }
        shown.step();
    });
    return std::cout.flush() && whole ? done : failed;
}

}  // namespace

command export_command() {
    const auto wanted = std::make_shared<export_options>();
    const auto add_options = [wanted](CLI::App& app) {
        wanted->wanted.add_options(app);
        app.add_flag("--content", wanted->content,
                     "Decode the contents: member text, or hex where one is no text");
    };
    return {"export", "Reports as JSON, one a line, as they go to the server", add_options,
            [wanted](const common_options&) { return export_reports(*wanted); }};
}

}  // namespace report_tool
