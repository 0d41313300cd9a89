// What the build makes of the program's own help: a manual page and a completion for bash.

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "command.h"
#include "output.h"

namespace report_tool {
namespace {

// Those that --help shows, in its order.
std::vector<const CLI::App*> commands_of(const CLI::App& program) {
    return program.get_subcommands(
        [](const CLI::App* command) { return !command->get_group().empty(); });
}

std::string roff(const std::string& text) {
    std::string escaped = text.compare(0, 1, ".") == 0 || text.compare(0, 1, "'") == 0 ? "\\&" : "";
    for (const char character : text) {
        escaped += character == '\\' ? "\\e" : character == '-' ? "\\-" : std::string(1, character);
    }
    return escaped;
}

void print_options(const CLI::App& app) {
    for (const CLI::Option* option : app.get_options()) {
        if (app.get_parent() != nullptr && option == app.get_help_ptr()) {
            continue;
        }
        const bool takes_value = option->get_expected_max() > 0 && !option->get_positional();
        std::cout << ".TP\n\\fB" << roff(option->get_name(true, true)) << "\\fR"
                  << (takes_value ? " \\fI" + roff(option->get_type_name()) + "\\fR" : "") << '\n'
                  << roff(option->get_description())
                  << (option->get_required() ? " (required)" : "") << '\n';
    }
}

void print_manual(const CLI::App& program) {
    const std::string name = roff(program.get_name());
    std::cout << ".TH TEV\\-REPORT 8 \"\" \"" << program.version() << "\"\n.SH NAME\n"
              << name << " \\- " << roff(program.get_description()) << "\n.SH SYNOPSIS\n\\fB"
              << name << "\\fR [\\fIOPTION\\fR ...] \\fICOMMAND\\fR [\\fIARGUMENT\\fR ...]\n"
              << ".SH OPTIONS\nThey may stand before and behind the command.\n";
    print_options(program);
    std::cout << ".SH COMMANDS\n";
    for (const CLI::App* command : commands_of(program)) {
        std::cout << ".SS " << roff(command->get_name()) << '\n'
                  << roff(command->get_description()) << '\n';
        print_options(*command);
    }
    std::cout << ".SH EXIT STATUS\n" << roff(program.get_footer()) << '\n';
}

std::string options_of(const CLI::App& app) {
    std::vector<std::string> words;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            words.push_back("--" + name);
        }
    }
    return join(words, " ");
}

// Where nothing fits, bash goes on with names of files.
void print_completion(const CLI::App& program) {
    std::vector<std::string> names;
    for (const CLI::App* command : commands_of(program)) {
        names.push_back(command->get_name());
    }
    std::cout << R"(_tev_report() {
    local at command=''
    for ((at = 1; at < COMP_CWORD; ++at)); do
        [[ ${COMP_WORDS[at]} == -* ]] || { command=${COMP_WORDS[at]} && break; }
    done
    local words=')"
              << options_of(program) << "'\n    case $command in\n        '') words+=' "
              << join(names, " ") << "' ;;\n";
    for (const CLI::App* command : commands_of(program)) {
        std::cout << "        " << command->get_name() << ") words+=' " << options_of(*command)
                  << "' ;;\n";
    }
    std::cout << R"(    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -o default -F _tev_report tev-report
)";
}

}  // namespace

command page_command() {
    const auto wanted = std::make_shared<std::string>();
    const auto here = std::make_shared<const CLI::App*>();
    const auto add_options = [wanted, here](CLI::App& app) {
        app.group("");
        app.add_option("KIND", *wanted)->required()->check(CLI::IsMember({"man", "bash"}));
        *here = &app;
    };
    return {"page", "", add_options, [wanted, here](const common_options&) {
                const CLI::App& program = *(*here)->get_parent();
                *wanted == "man" ? print_manual(program) : print_completion(program);
                return static_cast<int>(done);
            }};
}

}  // namespace report_tool
