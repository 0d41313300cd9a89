#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <json/value.h>

#include "command.h"
#include "json_io.h"
#include "lock.h"
#include "output.h"
#include "owner.h"

namespace report_tool {
namespace {

// Under its lock, as it is written in place.
Json::Value read_stats() {
    if (!read_device_file("stats")) {
        return Json::Value(Json::objectValue);
    }
    const held_lock lock(stats_lock);
    Json::Value content;
    if (!reporter::json_read(read_device_file("stats").value_or(""), content,
                             reporter::json_comments::skip) ||
        !content.isObject()) {
        throw std::runtime_error("stats is no JSON object: the next event begins it anew");
    }
    return content;
}

void print_table(const Json::Value& content) {
    std::vector<std::string> titles{"module"};
    std::map<std::string, std::vector<std::string>> rows;
    for (const std::string& event : content.getMemberNames()) {
        const Json::Value& modules = content[event];
        if (!modules.isObject()) {
            continue;
        }
        titles.push_back(event);
        for (const std::string& module : modules.getMemberNames()) {
            auto& row = rows[module];
            row.resize(titles.size() - 1, "0");
            row[0] = module;
            row.push_back(modules[module].isInt64() ? modules[module].asString() : "?");
        }
    }
    table counters(titles);
    for (auto& [module, row] : rows) {
        row.resize(titles.size(), "0");
        counters.add(row);
    }
    counters.print();
    std::cout << "\ncounted since " << content.get("first_start_at", "?").asString() << ", last at "
              << content.get("last_wrote_at", "?").asString() << '\n';
}

int show_stats(const common_options& options) {
    become_owner();
    const Json::Value content = read_stats();
    if (options.json) {
        print_json(content);
    } else if (content.empty()) {
        std::cout << "nothing was counted yet\n";
    } else {
        print_table(content);
    }
    return done;
}

}  // namespace

command stats_command() {
    return {"stats", "Occurrences sent and removed, by module, over all passes", [](CLI::App&) {},
            show_stats};
}

}  // namespace report_tool
