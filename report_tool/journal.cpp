#include <iostream>
#include <sstream>
#include <string>

#include <json/value.h>

#include "command.h"
#include "output.h"
#include "owner.h"

namespace report_tool {
namespace {

// What stands before the next "::", and the rest in `text`.
std::string take_field(std::string& text) {
    const auto end = text.find("::");
    std::string field = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 2);
    return field;
}

Json::Value read_journal() {
    Json::Value entries(Json::arrayValue);
    std::istringstream lines(read_device_file("journal").value_or(""));
    for (std::string line; std::getline(lines, line);) {
        Json::Value& entry = entries.append(Json::objectValue);
        entry["time"] = take_field(line);
        entry["source"] = take_field(line);
        entry["text"] = line;
    }
    return entries;
}

int show_journal(const common_options& options) {
    become_owner();
    const Json::Value entries = read_journal();
    if (options.json) {
        print_json(entries);
        return done;
    }
    if (entries.empty()) {
        std::cout << "no failure is noted\n";
        return done;
    }
    table lines({"time", "source", "text"});
    for (const Json::Value& entry : entries) {
        lines.add({printable(entry["time"].asString()), printable(entry["source"].asString()),
                   printable(entry["text"].asString())});
    }
    lines.print();
    return done;
}

}  // namespace

command journal_command() {
    return {"journal", "Failures of the latest pass that had one", [](CLI::App&) {}, show_journal};
}

}  // namespace report_tool
