#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include <algorithm>
#include <exception>
#include <iostream>
#include <map>
#include <stdexcept>

#include <json/value.h>

#include "command.h"
#include "explain.h"
#include "log_records.h"
#include "logging.h"
#include "look.h"
#include "output.h"
#include "owner.h"
#include "pass.h"
#include "pass_log.h"

namespace report_tool {
namespace {

// Modules by id of what is stored; nothing where the script does not tell.
std::map<unsigned int, int> list_modules() {
    std::map<unsigned int, int> modules;
    try {
        for (const Json::Value& report : open_look(false)->reports()) {
            modules[report["id"].asUInt()] = report["module"].asInt();
        }
    } catch (const std::exception&) {
        return modules;
    }
    return modules;
}

volatile std::sig_atomic_t agent = 0;

// The agent ends in order; what it does meanwhile is still shown.
void stop_agent(int) {
    if (agent > 0) {
        kill(agent, SIGTERM);
    }
}

[[noreturn]] void be_agent(int records) {
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    copy_records_to(records);
    try {
        reporter::run_sending_pass();
    } catch (const std::exception& error) {
        REPORTER_ERROR(error.what());
    }
    _exit(0);
}

// A pass in a process of its own, and the end of the pipe to which its records go.
class agent_process {
public:
    agent_process() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe can be made: " + error_text(errno));
        }
        std::signal(SIGTERM, SIG_DFL);
        agent = fork();
        if (agent == 0) {
            close(ends[0]);
            be_agent(ends[1]);
        }
        close(ends[1]);
        _records = ends[0];
        if (agent < 0) {
            close(_records);
            throw std::runtime_error("no process can be made: " + error_text(errno));
        }
        std::signal(SIGINT, stop_agent);
        std::signal(SIGTERM, stop_agent);
    }
    agent_process(const agent_process&) = delete;
    agent_process& operator=(const agent_process&) = delete;
    ~agent_process() { close(_records); }

    /// False at the end.
    bool next_line(std::string& line) {
        for (std::size_t end = 0; (end = _text.find('\n')) == std::string::npos;) {
            char bytes[4096];
            const ssize_t size = read(_records, bytes, sizeof bytes);
            if (size == 0 || (size < 0 && errno != EINTR)) {
                return false;
            }
            _text.append(bytes, size > 0 ? static_cast<std::size_t>(size) : 0);
        }
        line = _text.substr(0, _text.find('\n'));
        _text.erase(0, line.size() + 1);
        return true;
    }

    /// Whether it ended by itself.
    static bool ended_well() {
        int status = 0;
        while (waitpid(agent, &status, 0) < 0 && errno == EINTR) {
        }
        return WIFEXITED(status);
    }

private:
    int _records = -1;
    std::string _text;
};

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
        : _modules(std::move(modules)), _speaks(speaks) {
        _log.is_pass = true;
    }

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

    std::string module_of(unsigned int id) const {
        const auto found = _modules.find(id);
        return found == _modules.end() ? "?" : std::to_string(found->second);
    }

    std::map<std::pair<std::string, std::string>, int> count_outcomes() const {
        std::map<std::pair<std::string, std::string>, int> counts;
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

void print_result(const Json::Value& result, const process_log& log) {
    table rows({"module", "reports", "what became of them"});
    for (const Json::Value& row : result["outcomes"]) {
        rows.add({row["module"].asString(), row["reports"].asString(), row["outcome"].asString()});
    }
    if (!log.gate.empty()) {
        std::cout << printable(log.gate) << '\n';
    } else if (result["outcomes"].empty()) {
        std::cout << (log.finished ? "nothing was due\n"
                                   : "the pass ended before its reports: see what doctor says\n");
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
    const bool ended_well = agent_process::ended_well();
    options.json ? print_json(pass.result()) : print_result(pass.result(), pass.log());
    if (!ended_well) {
        throw std::runtime_error("the pass was killed: its reports stay for the next one");
    }
    return !pass.log().gate.empty() ? gate_closed : pass.got_through() ? done : failed;
}

}  // namespace

command run_command() {
    return {"run", "Makes one sending pass and shows what becomes of each report", [](CLI::App&) {},
            run_pass};
}

}  // namespace report_tool
