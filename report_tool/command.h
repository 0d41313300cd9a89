#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace report_tool {

/// How the program ends, for scripts.
enum exit_status : int { done = 0, failed = 1, refused = 2, gate_closed = 3 };

/// What every command takes beside options of its own.
struct common_options {
    bool json = false;
    bool log = false;
};

/// One command of the program. A file of its own makes it, main.cpp lists it.
struct command {
    const char* name;
    const char* summary;
    /// Adds the command's own options; called once, before `run`.
    std::function<void(CLI::App&)> add_options;
    /// Gives the exit status. An exception is told on standard error and gives `failed`, or
    /// `refused` when it is a refusal.
    std::function<int(const common_options&)> run;
};

command doctor_command();
command stats_command();
command journal_command();
command accounts_command();
command list_command();
command show_command();
command times_command();
command plan_command();
command save_command();
command remove_command();
command export_command();
command log_command();
command bundle_command();
command recover_command();
command run_command();
/// Not for people: the build has it print the manual page and the completion.
command page_command();

/// Wrong usage, or a user who may not run the command.
class refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace report_tool
