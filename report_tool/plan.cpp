#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "configuration.h"
#include "doctor/examination.h"
#include "json_io.h"
#include "look.h"
#include "modules/chunk_rules.h"
#include "modules/report_sender_module.h"
#include "output.h"
#include "owner.h"
#include "progress.h"
#include "selection.h"
#include "store.h"

namespace report_tool {
namespace {

// Does with the reports what a pass does, but for sending and pausing.
class forecast {
public:
    explicit forecast(const reporter::config_helper& sender)
        : _policy(sender, _no_store), _max_size(sender.get<unsigned int>("max_body_size")) {}

    void begin_time(const Json::Value& time) {
        _time = time;
        ++_pauses;
    }

    void add(unsigned int id, const std::string* text) {
        Json::Value report;
        _pauses += text != nullptr ? 1 : 0;
        if (text == nullptr || !reporter::json_read(*text, report, reporter::json_comments::skip) ||
            !report.isObject()) {
            _unreadable.append(id);
            return;
        }
        _pauses += 2;
        if (reporter::modules::begins_chunk(_size, text->size(), _max_size)) {
            end_chunk();
        }
        report["_ID"] = id;
        _reports.push_back(std::move(report));
        _size += text->size();
    }

    void end_time() {
        if (_size != 0) {
            end_chunk();
        }
    }

    Json::Value result() const {
        Json::Value result;
        result["requests"] = _requests;
        result["unreadable"] = _unreadable;
        result["pauses"] = Json::UInt64{_pauses};
        result["seconds"] = pause_seconds(_pauses);
        return result;
    }

private:
    void end_chunk() {
        ++_pauses;
        if (!_reports.empty()) {
            Json::Value& request = _requests.append(Json::objectValue);
            request["time"] = _time;
            request["ids"] = Json::Value(Json::arrayValue);
            for (const Json::Value& report : _reports) {
                request["ids"].append(report["_ID"]);
            }
            request["asked_first"] = asked_first();
            request["reports_size"] = Json::UInt64{_size};
            request["size"] = Json::UInt64{_policy.build_request(_reports).size()};
            _pauses += _reports.size();  // for the removals
        }
        _reports.clear();
        _size = 0;
    }

    Json::Value asked_first() {
        Json::Value ids(Json::arrayValue);
        try {
            for (const std::size_t position : reporter::modules::take_marks(_reports)) {
                ids.append(_reports[position]["_ID"]);
            }
        } catch (const std::exception&) {
            // A pass asks nothing then.
        }
        return ids;
    }

    std::shared_ptr<reporter::reports_storage> _no_store;
    const reporter::modules::report_sender_module_policy _policy;
    const std::size_t _max_size;
    Json::Value _time;
    std::vector<Json::Value> _reports;
    std::size_t _size = 0;
    std::size_t _pauses = 1;  // after the listing of the times
    Json::Value _requests{Json::arrayValue};
    Json::Value _unreadable{Json::arrayValue};
};

std::vector<unsigned int> ids_of(const Json::Value& due) {
    std::vector<unsigned int> ids;
    for (const Json::Value& id : due["ids"]) {
        ids.push_back(id.asUInt());
    }
    return ids;
}

Json::Value closed_gates(const reporter::config_helper& config) {
    doctor::examination whole{{}, true};
    whole.config = config;
    examine_gates(whole);
    Json::Value closed(Json::arrayValue);
    for (const doctor::point& one : whole.points) {
        if (one.how != doctor::state::ok) {
            Json::Value& gate = closed.append(Json::objectValue);
            gate["name"] = one.name;
            gate["found"] = one.found;
            gate["advice"] = one.advice;
        }
    }
    return closed;
}

forecast begin_forecast(const reporter::config_helper& config) {
    try {
        return forecast(config.get_helper("sender"));
    } catch (const std::exception& error) {
        throw std::runtime_error(error.what() + std::string(see_doctor));
    }
}

Json::Value make_plan(bool yes) {
    const auto config = load_device();
    const auto store = open_look(yes);
    const Json::Value listing = store->plan();
    forecast pass = begin_forecast(config);
    std::size_t reports = 0;
    for (const Json::Value& due : listing["due"]) {
        reports += due["ids"].size();
    }
    progress shown(reports, store->calls_for(reports));
    for (const Json::Value& due : listing["due"]) {
        pass.begin_time(due["time"]);
        store->read(ids_of(due), [&](unsigned int id, const std::string* text) {
            pass.add(id, text);
            shown.step();
        });
        pass.end_time();
    }
    Json::Value plan = pass.result();
    plan["closed_gates"] = closed_gates(config);
    plan["later"] = listing["later"].empty() ? Json::Value(Json::arrayValue) : listing["later"];
    for (const char* name : {"dropped_reports", "dropped_occurrences"}) {
        plan[name] = listing.get(name, 0);
    }
    return plan;
}

void print_requests(const Json::Value& plan) {
    table lines({"due", "request", "reports", "bytes of them", "bytes in all", "asked first"});
    int number = 0;
    for (const Json::Value& request : plan["requests"]) {
        lines.add({time_of(request, "time"), std::to_string(++number),
                   std::to_string(request["ids"].size()), text_of(request, "reports_size"),
                   text_of(request, "size"), std::to_string(request["asked_first"].size())});
    }
    lines.print();
}

void print_plan(const Json::Value& plan) {
    for (const Json::Value& gate : plan["closed_gates"]) {
        std::cout << "Nothing is sent: " << text_of(gate, "found") << "\n  -> "
                  << text_of(gate, "advice") << '\n';
    }
    if (plan["requests"].empty()) {
        std::cout << "No report is due.\n";
    } else {
        print_requests(plan);
    }
    if (number_of(plan, "dropped_reports") > 0) {
        const auto count_of = [&](const char* member, const char* thing) {
            return counted(static_cast<std::size_t>(number_of(plan, member)), thing);
        };
        std::cout << "Dropped for their age before: " << count_of("dropped_reports", "report")
                  << ", " << count_of("dropped_occurrences", "occurrence") << ".\n";
    }
    for (const Json::Value& id : plan["unreadable"]) {
        std::cout << "Passed over, as it is no JSON object: " << id.asString() << '\n';
    }
    if (!plan["later"].empty()) {
        std::cout << "Later: " << counted(plan["later"].size(), "time") << ", the next "
                  << readable_time(plan["later"][0].asInt64()) << ".\n";
    }
    std::cout << "Pauses: " << plan["pauses"].asString() << ", "
              << readable_duration(plan["seconds"].asDouble())
              << ", where the server settles each report.\n";
}

int show_plan(bool yes, const common_options& options) {
    require_owner();
    const Json::Value plan = make_plan(yes);
    options.json ? print_json(plan) : print_plan(plan);
    return plan["closed_gates"].empty() ? done : gate_closed;
}

}  // namespace

command plan_command() {
    const auto yes = std::make_shared<bool>(false);
    return {"plan", "What the next pass would do; sends and changes nothing",
            [yes](CLI::App& app) { add_yes(app, *yes); },
            [yes](const common_options& options) { return show_plan(*yes, options); }};
}

}  // namespace report_tool
