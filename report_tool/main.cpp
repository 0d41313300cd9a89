// tev-report: shows whoever stands before a device what is in it and what is wrong with it.

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "command.h"
#include "log_records.h"
#include "output.h"

namespace {

using namespace report_tool;

// What was found, and the help of the command that was meant, which says what is expected.
std::string tell_misuse(const CLI::App* app, const CLI::Error& error) {
    const bool no_command = app->get_subcommands().empty() && !app->remaining().empty();
    return "tev-report: " +
           printable(no_command ? app->remaining().front() + " is no command" : error.what()) +
           "\n\n" + app->help();
}

int run(int argc, char* argv[]) {
    CLI::App app("Shows what is in the report store of this device, and what keeps reports in it.",
                 "tev-report");
    app.require_subcommand(1);
    app.fallthrough();
    app.failure_message(tell_misuse);
    app.set_version_flag("--version", "tev-report " TEV_VERSION);
    app.footer(
        "Exit status: 0 done; 1 failed, for doctor a fault; 2 wrong usage, or a user who may not "
        "run it; 3 for doctor, plan and run: no fault, and a gate is closed.");
    common_options options;
    app.add_flag("--json", options.json, "Print JSON for programs");
    app.add_flag("--log", options.log, "Let records go to the platform's log");

    const command commands[] = {
        doctor_command(), stats_command(),   journal_command(), accounts_command(),
        list_command(),   show_command(),    times_command(),   plan_command(),
        save_command(),   remove_command(),  export_command(),  log_command(),
        bundle_command(), recover_command(), run_command(),     page_command()};
    std::vector<std::pair<CLI::App*, const command*>> known;
    for (const command& one : commands) {
        known.emplace_back(app.add_subcommand(one.name, one.summary), &one);
        one.add_options(*known.back().first);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? done : refused;
    }
    for (const auto& [parsed, one] : known) {
        if (parsed->parsed()) {
            if (options.log) {
                let_records_through();
            }
            return one->run(options);
        }
    }
    return refused;
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        const int status = run(argc, argv);
        if (!std::cout.flush()) {
            throw std::runtime_error("the output could not be written in whole");
        }
        return status;
    } catch (const refusal& error) {
        std::cerr << "tev-report: " << printable(error.what()) << '\n';
        return refused;
    } catch (const std::exception& error) {
        std::cerr << "tev-report: " << printable(error.what()) << '\n';
        return failed;
    }
}
