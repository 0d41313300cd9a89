#include "options.h"

#include <cerrno>
#include <cstdlib>

#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>

#include "report_store.h"
#include "request_form.h"

namespace collector {
namespace {

constexpr const char* SUMMARY =
    "A server that takes the agent's reports. It serves HTTPS, TLS 1.2 only, and only clients with "
    "a certificate of the given CA. Prints \"listening on ADDRESS\", then one line per request. "
    "SIGTERM and SIGINT end it.";

constexpr const char* PLAN_LINES =
    R"(A plan line is NUMBER ENDPOINT SETTING... For each request the first line that fits is used, in
the order of the command line.
  NUMBER    the request's number at its ENDPOINT, from 1; * for every request
  ENDPOINT  reports or check_hashes
  SETTING   status=N         HTTP status; other than 200, nothing is kept
            codes=LIST       what "body" holds: JSON values of any number and type
            body=TEXT        the answer's bytes
            delay=MS         wait before the answer
            cut=WHERE        close the connection: answer (none is sent), head, body; not with --plain
            keep=no          reports answered 200 are not kept
A value with blanks stands in single quotes.
A report is kept when the status and its code are 200, whether or not the answer arrives. One that is
malformed has the code 400. A request that is malformed is answered 400 with the reason, whatever the
plan says.
  2 reports status=503
  * check_hashes body='{"body":[1]}'
  3 reports cut=body
  1 reports codes=200,400,"x",[1] delay=250)";

/// What is looked at again once all of it is there. An empty text: not given.
struct command_line {
    std::string listen = "0";
    std::string status;
    tls_files tls;
    bool plain = false;
    std::vector<std::string> answers;
};

void add_answers(CLI::App& app, std::vector<std::string>& answers) {
    app.add_option("--answer", answers,
                   "A plan line: another answer to some requests. May be repeated; with the "
                   "embedded database")
        ->option_text("LINE")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

// Of two options of one name the later one counts, so that a script can add to its defaults.
void add_options(CLI::App& app, command_line& given, options& parsed) {
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    const auto add = [&app](const char* name, const char* value, std::string& target,
                            const char* meaning) {
        app.add_option(name, target, meaning)->option_text(value);
    };
    add("--ca", "FILE", given.tls.ca, "CA of the clients (PEM)");
    add("--cert", "FILE", given.tls.cert, "The server's certificate (PEM)");
    add("--key", "FILE", given.tls.key, "The server's key (PEM)");
    app.add_flag("--plain", given.plain,
                 "HTTP in place of these: a proxy before it has TLS, and hands the subject of the "
                 "certificate on as X-Client-Subject. Needs a local address to listen at");
    add("--listen", "ADDRESS", given.listen,
        "unix:PATH, PORT or HOST:PORT; without HOST on 127.0.0.1 only. If not given: a free port");
    add("--port-file", "FILE", parsed.port_file, "The port is written here once requests can come");
    add("--store", "PLACE", parsed.store,
        "A file for an embedded database, or postgresql://...; if not given: in memory");
    add("--status", "ADDRESS", given.status,
        "Answers there by plain HTTP what one may ask: /health, /metrics, /devices, /reports, "
        "/report?uid=..., /hours, /repetitions. Everyone who can reach it may ask, by its address");
    add("--page", "DIR", parsed.page,
        "Shows a page there, too, whose files are in DIR: collector/page. With the embedded "
        "database everyone who can reach it may also plan the next answers");
    add("--known-hashes", "FILE", parsed.known_hashes,
        "Contents already known, one SHA-256 a line; with the embedded database");
    add_answers(app, given.answers);
}

command_line read_command_line(int argc, char* argv[], options& parsed) {
    command_line given;
    CLI::App app(SUMMARY, "collector");
    app.footer(PLAN_LINES);
    app.set_version_flag("--version", "collector " TEV_VERSION);
    add_options(app, given, parsed);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) {
        app.exit(asked);
        std::exit(EXIT_SUCCESS);  // No other thread runs yet. NOLINT(concurrency-mt-unsafe)
    }
    return given;
}

void require(bool condition, const char* sentence) {
    if (!condition) {
        throw std::runtime_error(sentence);
    }
}

}  // namespace

options parse_options(int argc, char* argv[]) {
    options parsed;
    const command_line given = read_command_line(argc, argv, parsed);
    parsed.listen = listen_address(given.listen);
    if (!given.status.empty()) {
        parsed.status = listen_address(given.status);
    }
    if (!given.plain) {
        require(!given.tls.ca.empty() && !given.tls.cert.empty() && !given.tls.key.empty(),
                "--ca, --cert and --key are required, or --plain");
        parsed.tls = given.tls;
    }
    require(!given.plain || parsed.listen.is_local(), "--plain needs a local address to listen at");
    require(parsed.page.empty() || parsed.status, "--page needs --status");
    require(!is_server(parsed.store) || (given.answers.empty() && parsed.known_hashes.empty()),
            "--answer and --known-hashes are for the embedded database");
    for (const std::string& line : given.answers) {
        parsed.plan.add(line);
    }
    return parsed;
}

std::set<std::string> read_hashes(const std::string& path) {
    std::set<std::string> hashes;
    std::ifstream file(path);
    if (!path.empty() && !file) {
        throw std::runtime_error("cannot read the known hashes " + path + ": " +
                                 std::generic_category().message(errno));
    }
    for (std::string hash; file >> hash;) {
        if (!is_hash(hash)) {
            throw std::runtime_error("the known hashes " + path +
                                     " hold what is no SHA-256 in lower case");
        }
        hashes.insert(hash);
    }
    return hashes;
}

}  // namespace collector
