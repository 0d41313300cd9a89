#include <algorithm>
#include <iostream>
#include <memory>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "doctor/examination.h"
#include "output.h"
#include "owner.h"

namespace report_tool {
namespace {

using doctor::examination;
using doctor::point;
using doctor::state;

const char* word_for(state how) {
    static const char* const words[] = {"ok", "warning", "fault", "closed", "skipped"};
    return words[static_cast<int>(how)];
}

colour colour_for(state how) {
    static const colour colours[] = {colour::green, colour::yellow, colour::red, colour::yellow,
                                     colour::grey};
    return colours[static_cast<int>(how)];
}

long count(const examination& whole, state how) {
    return std::count_if(whole.points.begin(), whole.points.end(),
                         [how](const point& one) { return one.how == how; });
}

int status_of(const examination& whole) {
    return count(whole, state::fault) > 0    ? failed
           : count(whole, state::closed) > 0 ? gate_closed
                                             : done;
}

const char* verdict_of(int status) {
    return status == failed        ? "A fault stops a pass that is started now, or harms it"
           : status == gate_closed ? "Nothing is sent: a gate is closed"
                                   : "Nothing was found that keeps reports here";
}

void print_points(const examination& whole) {
    std::string group;
    for (const point& one : whole.points) {
        if (one.group != group) {
            group = one.group;
            std::cout << group << '\n';
        }
        const std::string word = word_for(one.how);
        std::cout << "  " << in_colour(colour_for(one.how), word)
                  << std::string(9 - word.size(), ' ') << one.name << ": " << one.found << '\n';
        if (!one.advice.empty()) {
            std::cout << "           -> " << one.advice << '\n';
        }
    }
    std::cout << '\n'
              << verdict_of(status_of(whole)) << ". Faults: " << count(whole, state::fault)
              << ", closed: " << count(whole, state::closed)
              << ", warnings: " << count(whole, state::warning)
              << ", skipped: " << count(whole, state::skipped) << ".\n";
}

Json::Value document_of(const examination& whole) {
    Json::Value document;
    document["schema"] = 1;
    document["status"] = status_of(whole);
    Json::Value& points = document["points"] = Json::Value(Json::arrayValue);
    for (const point& one : whole.points) {
        Json::Value& entry = points.append(Json::objectValue);
        entry["group"] = one.group;
        entry["name"] = one.name;
        entry["state"] = word_for(one.how);
        entry["cause"] = one.cause;
        entry["found"] = one.found;
        entry["advice"] = one.advice;
    }
    return document;
}

examination examine(const doctor::options& asked) {
    examination whole{asked, become_owner()};
    examine_configuration(whole);
    examine_gates(whole);
    examine_files(whole);
    examine_script(whole);
    examine_store(whole);
    whole.store.reset();
    examine_credentials(whole);
    examine_time(whole);
    examine_server(whole);
    return whole;
}

int show_examination(const doctor::options& asked, const common_options& options) {
    const examination whole = examine(asked);
    options.json ? print_json(document_of(whole)) : print_points(whole);
    return status_of(whole);
}

}  // namespace

Json::Value doctor_document(const doctor::options& asked) {
    return document_of(examine(asked));
}

command doctor_command() {
    const auto asked = std::make_shared<doctor::options>();
    const auto add_options = [asked](CLI::App& app) {
        app.add_flag("--offline", asked->offline, "Leave the network out");
        app.add_option("--timeout", asked->timeout_seconds,
                       "Seconds for the network, 1 to 3600; 10 by default")
            ->check(CLI::Range(1, 3600).description(""));
        app.add_flag("--deep", asked->deep, "Have SQLite look through the whole store");
        app.add_flag("--ask", asked->ask, "Send the server two requests without content");
    };
    return {"doctor", "What keeps reports in this device, and what to do", add_options,
            [asked](const common_options& options) { return show_examination(*asked, options); }};
}

}  // namespace report_tool
