#include <algorithm>
#include <exception>
#include <iostream>
#include <map>
#include <stdexcept>

#include <json/value.h>

#include "agent_process.h"
#include "command.h"
#include "explain.h"
#include "failure.h"
#include "look.h"
#include "output.h"
#include "owner.h"
#include "pass_log.h"

namespace report_tool {
namespace {

// Modules by id of what is stored; nothing where the script does not tell. Says who keeps the store
// locked, as the pass waits for that without a limit and without a word.
std::map<unsigned int, int> list_modules() {
    std::map<unsigned int, int> modules;
    try {
        for (const Json::Value& report : open_look(false)->reports()) {
            modules[report["id"].asUInt()] = report["module"].asInt();
        }
    } catch (const failure& error) {
        if (error.cause == "held") {
            std::cerr << "tev-report: " << error.what() << ": the pass waits until it is free\n";
        }
    } catch (const std::exception&) {
        return modules;
    }
    return modules;
}

bool is_answered(const sent_chunk& chunk) {
    const int status = chunk.requests.empty() ? 200 : chunk.requests.back().status;
    return status == 200 || status == 400;
}

// What became of a chunk's reports, in the order of its ids.
std::vector<std::pair<unsigned int, std::string>> outcomes_of(const sent_chunk& chunk) {
    std::vector<std::pair<unsigned int, std::string>> outcomes;
    for (const unsigned int id : chunk.known) {
        outcomes.emplace_back(id, "the server had it already");
    }
    const auto uploaded = chunk.uploaded();
    for (std::size_t at = 0; at < uploaded.size(); ++at) {
        outcomes.emplace_back(uploaded[at], at < chunk.codes.size()  ? explain_code(chunk.codes[at])
                                            : chunk.requests.empty() ? "not sent"
                                            : is_answered(chunk)
                                                ? "no code, goes with the next pass"
                                                : explain_status(chunk.requests.back().status));
    }
    return outcomes;
}

class shown_pass {
public:
    shown_pass(std::map<unsigned int, int> modules, bool speaks)
        : _modules(std::move(modules)), _speaks(speaks) {}

    void follow(agent_process& process) {
        for (std::string line; process.next_line(line);) {
            if (const auto record = read_log_line(line)) {
                _log.add(*record);
                show_news();
            }
        }
    }

    Json::Value result() const {
        Json::Value document;
        document["gate"] = _log.gate;
        document["finished"] = _log.finished;
        document["outcomes"] = Json::Value(Json::arrayValue);
        for (const auto& [what, reports] : count_outcomes()) {
            Json::Value& row = document["outcomes"].append(Json::objectValue);
            row["module"] = what.first;
            row["outcome"] = what.second;
            row["reports"] = reports;
        }
        return document;
    }

    // Whether all that was tried got an answer.
    bool got_through() const {
        bool answered = _log.finished;
        for (const pass_step& step : _log.steps) {
            answered = answered && std::all_of(step.chunks.begin(), step.chunks.end(), is_answered);
        }
        return answered && std::none_of(_log.complaints.begin(), _log.complaints.end(),
                                        [](const told& one) { return one.priority == 'E'; });
    }
    const process_log& log() const { return _log; }

private:
    void show_news() {
        while (_steps_shown + 1 < _log.steps.size()) {
            show_chunks(_log.steps[_steps_shown++]);
            _chunks_shown = _reports_tried = 0;
        }
        show_chunks(_log.steps.back());
    }

    void show_chunks(const pass_step& step) {
        for (; _chunks_shown < step.chunks.size() && step.chunks[_chunks_shown].ended;
             ++_chunks_shown) {
            const sent_chunk& chunk = step.chunks[_chunks_shown];
            _reports_tried += chunk.ids.size();
            if (_speaks) {
                show_chunk(step, chunk);
            }
        }
    }

    void show_chunk(const pass_step& step, const sent_chunk& chunk) const {
        std::cout << printable(step.name) << ", chunk " << _chunks_shown + 1 << ": "
                  << counted(chunk.ids.size(), "report");
        if (!chunk.requests.empty()) {
            const posted& request = chunk.requests.back();
            std::cout << ", " << readable_size(static_cast<double>(request.bytes)) << ", "
                      << explain_status(request.status);
        }
        std::cout << "; " << step.reports - std::min(step.reports, _reports_tried) << " of "
                  << step.reports << " are still to come" << std::endl;
    }

    Json::Value module_of(unsigned int id) const {
        const auto found = _modules.find(id);
        return found == _modules.end() ? Json::Value("?") : Json::Value(found->second);
    }

    std::map<std::pair<Json::Value, std::string>, int> count_outcomes() const {
        std::map<std::pair<Json::Value, std::string>, int> counts;
        for (const pass_step& step : _log.steps) {
            for (const sent_chunk& chunk : step.chunks) {
                for (const auto& [id, outcome] : outcomes_of(chunk)) {
                    ++counts[{module_of(id), outcome}];
                }
            }
        }
        return counts;
    }

    process_log _log;
    std::map<unsigned int, int> _modules;
    bool _speaks;
    std::size_t _steps_shown = 0, _chunks_shown = 0, _reports_tried = 0;
};

void print_result(const Json::Value& result, const shown_pass& pass) {
    const process_log& log = pass.log();
    table rows({"module", "reports", "what became of them"});
    for (const Json::Value& row : result["outcomes"]) {
        rows.add({row["module"].asString(), row["reports"].asString(), row["outcome"].asString()});
    }
    if (!log.gate.empty()) {
        std::cout << printable(log.gate) << '\n';
    } else if (result["outcomes"].empty()) {
        std::cout << (log.stopped          ? "nothing was sent\n"
                      : pass.got_through() ? "nothing was due\n"
                                           : "nothing was sent: see what doctor says\n");
    } else {
        std::cout << '\n';
        rows.print();
    }
    print_complaints(log.complaints);
}

int run_pass(const common_options& options) {
    require_owner();
    shown_pass pass(list_modules(), !options.json);
    agent_process process;
    pass.follow(process);
    const bool ended_well = agent_process::ended_by_itself();
    options.json ? print_json(pass.result()) : print_result(pass.result(), pass);
    if (!ended_well || pass.log().stopped) {
        throw std::runtime_error(std::string("the pass was ") +
                                 (ended_well ? "stopped" : "killed") +
                                 ": what it did not send stays for the next one");
    }
    return !pass.log().gate.empty() ? gate_closed : pass.got_through() ? done : failed;
}

}  // namespace

command run_command() {
    return {"run", "Makes one sending pass and shows what becomes of each report", [](CLI::App&) {},
            run_pass};
}

}  // namespace report_tool
