#include <iostream>
#include <memory>

#include <json/value.h>

#include "command.h"
#include "output.h"
#include "owner.h"
#include "selection.h"

namespace report_tool {
namespace {

void print_table(const std::vector<Json::Value>& reports) {
    table lines({"id", "due", "module", "type", "count", "size", "first", "last", ""});
    double size = 0, occurrences = 0;
    for (const Json::Value& row : reports) {
        lines.add({text_of(row, "id"), time_of(row, "time"), text_of(row, "module"),
                   text_of(row, "type"), text_of(row, "count"), text_of(row, "size"),
                   time_of(row, "first_time"), time_of(row, "last_time"),
                   row["sealed"].asBool() ? "listed" : ""});
        size += number_of(row, "size");
        occurrences += number_of(row, "count");
    }
    lines.print();
    std::cout << '\n'
              << counted(reports.size(), "report") << ", "
              << counted(static_cast<std::size_t>(occurrences), "occurrence") << ", "
              << readable_size(size) << " of content\n";
}

int list(const selection& wanted, const common_options& options) {
    require_owner();
    const auto store = open_look(wanted.yes);
    const std::vector<Json::Value> reports = wanted.reports_of(*store);
    if (!options.json) {
        print_table(reports);
        return done;
    }
    Json::Value document(Json::arrayValue);
    for (const Json::Value& row : reports) {
        document.append(row);
    }
    print_json(document);
    return done;
}

}  // namespace

command list_command() {
    const auto wanted = std::make_shared<selection>();
    return {"list", "Reports in the store, in the order of sending",
            [wanted](CLI::App& app) { wanted->add_options(app); },
            [wanted](const common_options& options) { return list(*wanted, options); }};
}

}  // namespace report_tool
