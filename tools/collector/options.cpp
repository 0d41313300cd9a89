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

namespace collector {
namespace {

constexpr const char* HELP =
    R"(collector: an HTTPS server that takes the agent's reports, for demo and tests

Serves 127.0.0.1 only, TLS 1.2 only, and only clients with a certificate of the given CA.
Prints "listening on 127.0.0.1:PORT", then one line per request. SIGTERM and SIGINT end it.

  --port N                  port; 0, the default, takes a free one
  --port-file FILE          where to write the port once requests can come
  --ca FILE                 CA of the clients (PEM)
  --cert FILE, --key FILE   the server's certificate and key (PEM)
  --reports-path PATH       default reports
  --check-hashes-path PATH  default check_hashes
  --known-hashes FILE       contents already known: one SHA-256 a line
  --store FILE              accepted reports are appended here, one JSON object a line
  --plan FILE               requests to answer otherwise, one plan line each
  --answer LINE             one plan line; may be repeated

A plan line is NUMBER ENDPOINT SETTING...; the first that fits a request is used, in the
order of the command line.
  NUMBER    the request's number from 1, counted at its ENDPOINT; * for each
  ENDPOINT  reports, check_hashes, or * for both (NUMBER then counts all requests)
  SETTING   status=N         HTTP status; other than 200, nothing is kept
            codes=LIST       what "body" holds: JSON values of any number and type
            body=TEXT        the answer's bytes; body=@FILE takes those of a file
            header=TEXT      'Name: value' for the answer's head; may be repeated
            delay=MS         wait before the answer
            drip=MS          wait before each byte of the answer
            cut=WHERE        close the connection: answer (none is sent), head, body
            garbage=N        N bytes that are not HTTP
            keep=no          reports answered 200 are not kept
A value with blanks stands in single quotes. A line that begins with # is passed over.
A report is kept when the status and its code are 200, whether or not the answer arrives.
A request that is malformed is answered 400 with the reason, whatever the plan says.
  2 reports status=503
  * check_hashes body='{"body":[1]}'
  3 reports cut=body
  1 reports codes=200,400,"x",[1] delay=250
)";

enum option_number : int {
    PORT = 1,
    PORT_FILE,
    CA,
    CERT,
    KEY,
    REPORTS_PATH,
    CHECK_HASHES_PATH,
    KNOWN_HASHES,
    STORE,
    PLAN,
    ANSWER,
    HELP_TEXT
};

constexpr std::array LONG_OPTIONS = {
    option{"port", required_argument, nullptr, PORT},
    option{"port-file", required_argument, nullptr, PORT_FILE},
    option{"ca", required_argument, nullptr, CA},
    option{"cert", required_argument, nullptr, CERT},
    option{"key", required_argument, nullptr, KEY},
    option{"reports-path", required_argument, nullptr, REPORTS_PATH},
    option{"check-hashes-path", required_argument, nullptr, CHECK_HASHES_PATH},
    option{"known-hashes", required_argument, nullptr, KNOWN_HASHES},
    option{"store", required_argument, nullptr, STORE},
    option{"plan", required_argument, nullptr, PLAN},
    option{"answer", required_argument, nullptr, ANSWER},
    option{"help", no_argument, nullptr, HELP_TEXT},
    option{nullptr, 0, nullptr, 0}};

int to_port(const std::string& text) {
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits || text.size() > 5 || std::stoi(text) > 65535) {
        throw std::runtime_error("\"" + text + "\" is no port");
    }
    return std::stoi(text);
}

void read_plan(answer_plan& plan, const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read the plan " + path + ": " +
                                 std::generic_category().message(errno));
    }
    try {
        plan.add_all(file);
    } catch (const std::invalid_argument& e) {
        throw std::runtime_error("the plan " + path + ", " + e.what());
    }
}

}  // namespace

options parse_options(int argc, char* argv[]) {
    options parsed;
    std::string port = "0";
    const std::map<int, std::string*> texts = {{PORT, &port},
                                               {PORT_FILE, &parsed.port_file},
                                               {CA, &parsed.tls.ca},
                                               {CERT, &parsed.tls.cert},
                                               {KEY, &parsed.tls.key},
                                               {REPORTS_PATH, &parsed.reports_path},
                                               {CHECK_HASHES_PATH, &parsed.check_hashes_path},
                                               {KNOWN_HASHES, &parsed.known_hashes},
                                               {STORE, &parsed.store}};

    int given = 0;
    // No other thread runs yet. NOLINTNEXTLINE(concurrency-mt-unsafe)
    while ((given = getopt_long(argc, argv, "", LONG_OPTIONS.data(), nullptr)) != -1) {
        const auto text = texts.find(given);
        if (text != texts.end()) {
            *text->second = optarg;
        } else if (given == PLAN) {
            read_plan(parsed.plan, optarg);
        } else if (given == ANSWER) {
            parsed.plan.add(optarg);
        } else if (given == HELP_TEXT) {
            std::cout << HELP;
            std::exit(EXIT_SUCCESS);  // NOLINT(concurrency-mt-unsafe)
        } else {
            throw std::runtime_error("see --help");
        }
    }
    if (optind < argc || parsed.tls.ca.empty() || parsed.tls.cert.empty() ||
        parsed.tls.key.empty()) {
        throw std::runtime_error("--ca, --cert and --key are needed, and nothing but options");
    }
    parsed.port = to_port(port);
    return parsed;
}

}  // namespace collector
