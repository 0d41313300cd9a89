#include "options.h"

#include <getopt.h>

#include <cerrno>
#include <cstdlib>

#include <array>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <system_error>

#include "report_store.h"
#include "request_form.h"

namespace collector {
namespace {

constexpr const char* HELP =
    R"(collector: a server that takes the agent's reports

Serves HTTPS, TLS 1.2 only, and only clients with a certificate of the given CA. Prints "listening on
ADDRESS", then one line per request. SIGTERM and SIGINT end it.

  --ca FILE                 CA of the clients (PEM)
  --cert FILE, --key FILE   the server's certificate and key (PEM)
  --plain                   HTTP in place of these: a proxy before it has TLS, and hands the subject of the
                            certificate on as X-Client-Subject. Needs a local address to listen at
  --listen ADDRESS          unix:PATH, PORT or HOST:PORT; without HOST on 127.0.0.1 only. If not given: a
                            free port
  --port-file FILE          the port is written here once requests can come
  --store PLACE             a file for an embedded database, or postgresql://...; if not given: in memory
  --status ADDRESS          answers there by plain HTTP what one may ask: /health, /metrics, /devices,
                            /reports, /report?uid=..., /hours, /repetitions. Everyone who can reach it may ask,
                            by its address
  --page DIR                shows a page there, too, whose files are in DIR: collector/page. With the embedded
                            database everyone who can reach it may also plan the next answers
  --version                 prints the version, and does nothing else

With the embedded database also:
  --known-hashes FILE       contents already known: one SHA-256 a line
  --answer LINE             a plan line: another answer to some requests; may be repeated

A plan line is NUMBER ENDPOINT SETTING... For each request the first line that fits is used, in
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
  1 reports codes=200,400,"x",[1] delay=250
)";

enum option_number : int {
    PORT_FILE = 1,
    CA,
    CERT,
    KEY,
    PLAIN,
    LISTEN,
    STATUS,
    PAGE,
    KNOWN_HASHES,
    STORE,
    ANSWER,
    HELP_TEXT,
    VERSION
};

constexpr std::array LONG_OPTIONS = {
    option{"port-file", required_argument, nullptr, PORT_FILE},
    option{"ca", required_argument, nullptr, CA},
    option{"cert", required_argument, nullptr, CERT},
    option{"key", required_argument, nullptr, KEY},
    option{"plain", no_argument, nullptr, PLAIN},
    option{"listen", required_argument, nullptr, LISTEN},
    option{"status", required_argument, nullptr, STATUS},
    option{"page", required_argument, nullptr, PAGE},
    option{"known-hashes", required_argument, nullptr, KNOWN_HASHES},
    option{"store", required_argument, nullptr, STORE},
    option{"answer", required_argument, nullptr, ANSWER},
    option{"help", no_argument, nullptr, HELP_TEXT},
    option{"version", no_argument, nullptr, VERSION},
    option{nullptr, 0, nullptr, 0}};

void require(bool condition, const char* sentence) {
    if (!condition) {
        throw std::runtime_error(sentence);
    }
}

/// What each option is worth, the last one of a name, and the plan lines.
struct given_options {
    std::map<int, std::string> values;
    answer_plan plan;
};

given_options read_command_line(int argc, char* argv[]) {
    given_options given;
    int number = 0;
    // No other thread runs yet. NOLINTNEXTLINE(concurrency-mt-unsafe)
    while ((number = getopt_long(argc, argv, "", LONG_OPTIONS.data(), nullptr)) != -1) {
        require(number != '?', "see --help");
        if (number == HELP_TEXT || number == VERSION) {
            std::cout << (number == VERSION ? "collector " TEV_VERSION "\n" : HELP);
            std::exit(EXIT_SUCCESS);  // NOLINT(concurrency-mt-unsafe)
        }
        given.values[number] = optarg != nullptr ? optarg : "";
        if (number == ANSWER) {
            given.plan.add(optarg);
        }
    }
    require(optind >= argc, "only options are allowed");
    return given;
}

}  // namespace

options parse_options(int argc, char* argv[]) {
    given_options given = read_command_line(argc, argv);
    const auto has = [&](int number) { return given.values.count(number) != 0; };
    options parsed;
    if (has(LISTEN)) {
        parsed.listen = listen_address(given.values[LISTEN]);
    }
    if (has(STATUS)) {
        parsed.status = listen_address(given.values[STATUS]);
    }
    if (!has(PLAIN)) {
        require(has(CA) && has(CERT) && has(KEY),
                "--ca, --cert and --key are required, or --plain");
        parsed.tls = {given.values[CA], given.values[CERT], given.values[KEY]};
    }
    parsed.store = given.values[STORE];
    require(!has(PLAIN) || parsed.listen.is_local(), "--plain needs a local address to listen at");
    require(!has(PAGE) || has(STATUS), "--page needs --status");
    require(!is_server(parsed.store) || !(has(ANSWER) || has(KNOWN_HASHES)),
            "--answer and --known-hashes are for the embedded database");
    parsed.port_file = given.values[PORT_FILE];
    parsed.page = given.values[PAGE];
    parsed.known_hashes = given.values[KNOWN_HASHES];
    parsed.plan = std::move(given.plan);
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
