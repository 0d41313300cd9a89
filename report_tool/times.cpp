#include <memory>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "look.h"
#include "output.h"
#include "owner.h"
#include "selection.h"

namespace report_tool {
namespace {

int show_times(const selection& wanted, const common_options& options) {
    require_owner();
    const auto store = open_look(wanted.yes);
    Json::Value times(Json::arrayValue);
    for (const Json::Value& one : store->times()) {
        if (!wanted.due || is_due(one["time"])) {
            times.append(one);
        }
    }
    if (options.json) {
        print_json(times);
        return done;
    }
    table lines({"time", "", "reports", "occurrences", ""});
    for (const Json::Value& one : times) {
        lines.add({time_of(one, "time"), is_due(one["time"]) ? "due" : "later",
                   text_of(one, "reports"), text_of(one, "occurrences"),
                   one["sealed"].asBool() ? "listed" : ""});
    }
    lines.print();
    return done;
}

}  // namespace

command times_command() {
    const auto wanted = std::make_shared<selection>();
    const auto add_options = [wanted](CLI::App& app) {
        add_due(app, wanted->due);
        add_yes(app, wanted->yes);
    };
    return {"times", "For when reports are stored", add_options,
            [wanted](const common_options& options) { return show_times(*wanted, options); }};
}

}  // namespace report_tool
