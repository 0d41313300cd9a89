#include <cerrno>
#include <cmath>
#include <cstdio>

#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "explain.h"
#include "output.h"
#include "pass_log.h"
#include "progress.h"

namespace report_tool {
namespace {

struct process {
    int number;
    process_log log;
};

// A process may use the number of an earlier one.
std::vector<process> read_processes(std::istream& lines) {
    std::vector<process> processes;
    std::map<int, std::size_t> latest;
    for (std::string line; std::getline(lines, line);) {
        const auto record = read_log_line(line);
        if (!record) {
            continue;
        }
        const bool known = latest.count(record->process) != 0;
        if (!known || record->text.compare(0, 14, "processor pid:") == 0) {
            latest[record->process] = processes.size();
            processes.push_back({record->process, {}});
        }
        processes[latest[record->process]].log.add(*record);
    }
    return processes;
}

std::vector<process> read_log(const std::string& name) {
    std::ifstream file;
    if (name != "-") {
        file.open(name, std::ios::binary);
        // A directory opens and cannot be read.
        if (!file || (file.peek(), file.bad())) {
            throw std::runtime_error(name + " cannot be read: " + error_text(errno));
        }
    }
    auto processes = read_processes(name == "-" ? std::cin : file);
    if (processes.empty()) {
        throw std::runtime_error(
            (name == "-" ? "standard input" : name) +
            " holds no record of the agent: expected lines with the tag TEV_REPORTER and "
            "\"PROCESSOR :rss\", as the platform's log prints them");
    }
    return processes;
}

// From the time stamps; without them what pauses and requests take at least.
Json::Value seconds_of(const pass_step& step) {
    const auto pauses = static_cast<std::size_t>(step.pauses);
    const double told = step.begin && step.end ? *step.end - *step.begin
                                               : pause_seconds(pauses) + step.requests_seconds;
    return std::round(told * 1000) / 1000;
}

Json::Value describe(const posted& request) {
    Json::Value one;
    one["path"] = request.path;
    one["bytes"] = static_cast<Json::Int64>(request.bytes);
    one["seconds"] = request.seconds;
    one["tries"] = request.tries;
    one["status"] = request.status;
    one["meaning"] =
        explain_status(request.status) + (request.error.empty() ? "" : " (" + request.error + ")");
    return one;
}

Json::Value describe(const sent_chunk& chunk) {
    Json::Value one;
    one["reports"] = static_cast<Json::UInt64>(chunk.ids.size());
    one["known"] = static_cast<Json::UInt64>(chunk.known.size());
    one["codes"] = Json::Value(Json::objectValue);
    for (const int code : chunk.codes) {
        Json::Value& times = one["codes"][std::to_string(code)];
        times = times.asInt() + 1;
    }
    one["requests"] = Json::Value(Json::arrayValue);
    for (const posted& request : chunk.requests) {
        one["requests"].append(describe(request));
    }
    return one;
}

Json::Value describe(const process& whole) {
    const process_log& log = whole.log;
    Json::Value one;
    one["process"] = whole.number;
    one["pass"] = log.is_pass;
    one["finished"] = log.finished;
    one["stopped"] = log.stopped;
    one["gate"] = log.gate;
    one["saved"] = log.saved;
    one["refused"] = log.refused;
    one["timed"] = log.steps.front().begin.has_value();
    one["steps"] = one["complaints"] = Json::Value(Json::arrayValue);
    for (const pass_step& step : log.steps) {
        Json::Value& part = one["steps"].append(Json::objectValue);
        part["name"] = step.name;
        part["seconds"] = seconds_of(step);
        part["pauses"] = step.pauses;
        part["reports"] = static_cast<Json::UInt64>(step.reports);
        part["chunks"] = Json::Value(Json::arrayValue);
        for (const sent_chunk& chunk : step.chunks) {
            part["chunks"].append(describe(chunk));
        }
    }
    for (const told& complaint : log.complaints) {
        Json::Value& part = one["complaints"].append(Json::objectValue);
        part["priority"] = std::string(1, complaint.priority);
        part["text"] = complaint.text;
        part["times"] = complaint.times;
    }
    return one;
}

std::string readable_seconds(const Json::Value& seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", seconds.asDouble());
    return text;
}

void print_chunk(const Json::Value& chunk, unsigned int number) {
    const unsigned int reports = chunk["reports"].asUInt();
    std::cout << "    chunk " << number << ": "
              << (reports > 0 ? counted(reports, "report") : "reports that are not in this log");
    if (chunk["known"].asUInt() > 0) {
        std::cout << ", the server has " << chunk["known"].asString() << " of them";
    }
    std::cout << '\n';
    for (const Json::Value& request : chunk["requests"]) {
        std::cout << "      POST " << printable(request["path"].asString()) << ", "
                  << request["bytes"].asString() << " bytes, "
                  << readable_seconds(request["seconds"]) << ": "
                  << printable(request["meaning"].asString());
        if (request["tries"].asUInt() > 1) {
            std::cout << ", after " << request["tries"].asString() << " tries";
        }
        std::cout << '\n';
    }
    for (const std::string& code : chunk["codes"].getMemberNames()) {
        std::cout << "      " << counted(chunk["codes"][code].asUInt(), "report") << ": "
                  << explain_code(std::stoi(code)) << '\n';
    }
}

void print_steps(const Json::Value& one) {
    const char* const at_least = one["timed"].asBool() ? "" : "at least ";
    for (const Json::Value& step : one["steps"]) {
        std::cout << "  " << printable(step["name"].asString()) << ": " << at_least
                  << readable_seconds(step["seconds"]) << ", "
                  << counted(step["pauses"].asUInt(), "pause");
        if (step["reports"].asUInt() > 0) {
            std::cout << ", " << counted(step["reports"].asUInt(), "report");
        }
        std::cout << '\n';
        unsigned int number = 0;
        for (const Json::Value& chunk : step["chunks"]) {
            print_chunk(chunk, ++number);
        }
    }
}

void print_process(const Json::Value& one, const std::vector<told>& complaints) {
    std::cout << (one["pass"].asBool() ? "pass of process " : "records of process ")
              << one["process"].asString() << '\n';
    if (one["pass"].asBool()) {
        print_steps(one);
        const std::string gate = one["gate"].asString();
        std::cout << "  "
                  << (!gate.empty()              ? printable(gate)
                      : one["finished"].asBool() ? "ended by itself"
                      : one["stopped"].asBool()  ? "was stopped"
                                                 : "its end is not in this log")
                  << '\n';
    }
    if (one["saved"].asInt() + one["refused"].asInt() > 0) {
        std::cout << "  saved " << one["saved"].asString() << " times, refused "
                  << one["refused"].asString() << '\n';
    }
    print_complaints(complaints);
}

int show_log(const std::string& name, const common_options& options) {
    const std::vector<process> processes = read_log(name);
    Json::Value document(Json::arrayValue);
    for (const process& one : processes) {
        document.append(describe(one));
        if (!options.json) {
            print_process(describe(one), one.log.complaints);
        }
    }
    if (options.json) {
        print_json(document);
    }
    return done;
}

}  // namespace

command log_command() {
    const auto name = std::make_shared<std::string>("-");
    const auto add_options = [name](CLI::App& app) {
        app.add_option("FILE", *name, "Lines of the platform's log; - is standard input");
    };
    return {"log", "A platform log on a page: steps, requests, warnings and errors", add_options,
            [name](const common_options& options) { return show_log(*name, options); }};
}

}  // namespace report_tool
