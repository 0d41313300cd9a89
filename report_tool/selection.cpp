#include "selection.h"

#include <algorithm>
#include <ctime>

#include <CLI/CLI.hpp>

namespace report_tool {
namespace {

// Members come from the storage script, so they may be of any kind.
bool fits(const Json::Value& value, const std::optional<int>& wanted) {
    return !wanted || (value.isIntegral() && value == Json::Value(*wanted)) ||
           (value.isDouble() && value.asDouble() == *wanted);
}

}  // namespace

void add_yes(CLI::App& app, bool& yes) {
    app.add_flag("--yes", yes,
                 "Go on where the storage script cannot be asked without a change to the store");
}

void add_due(CLI::App& app, bool& due) {
    app.add_flag("--due", due, "Only what is due");
}

bool is_due(const Json::Value& time) {
    return time.isNumeric() && time.asDouble() <= static_cast<double>(std::time(nullptr));
}

void selection::add_options(CLI::App& app) {
    app.add_option("--module", module, "Only reports of this module");
    app.add_option("--type", type, "Only reports of this type");
    add_due(app, due);
    add_yes(app, yes);
}

std::vector<Json::Value> selection::reports_of(look& store) const {
    std::vector<Json::Value> reports = store.reports();
    reports.erase(std::remove_if(reports.begin(), reports.end(),
                                 [this](const Json::Value& row) {
                                     return !fits(row["module"], module) ||
                                            !fits(row["type"], type) ||
                                            (due && !is_due(row["time"]));
                                 }),
                  reports.end());
    std::stable_sort(reports.begin(), reports.end(),
                     [](const Json::Value& one, const Json::Value& other) {
                         return one["time"] < other["time"];
                     });
    return reports;
}

}  // namespace report_tool
