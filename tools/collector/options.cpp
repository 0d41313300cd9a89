#include "options.h"

#include <getopt.h>

#include <cstdlib>

#include <array>
#include <iostream>
#include <map>
#include <stdexcept>

namespace collector {
namespace {

constexpr const char* HELP =
    R"(collector: an HTTPS server that takes the agent's reports, for demo and tests

Serves 127.0.0.1 only, TLS 1.2 only, and only clients with a certificate of the given CA.
Prints "listening on 127.0.0.1:PORT", then one line per request. SIGTERM and SIGINT end it.

  --port-file FILE          the port, a free one, is written here once requests can come
  --ca FILE                 CA of the clients (PEM)
  --cert FILE, --key FILE   the server's certificate and key (PEM)
  --known-hashes FILE       contents already known: one SHA-256 a line
  --store FILE              accepted reports are appended here, one JSON object a line
  --answer LINE             a plan line: another answer to some requests; may be repeated

A plan line is NUMBER ENDPOINT SETTING... For each request the first line that fits is used, in
the order of the command line.
  NUMBER    the request's number at its ENDPOINT, from 1; * for every request
  ENDPOINT  reports or check_hashes
  SETTING   status=N         HTTP status; other than 200, nothing is kept
            codes=LIST       what "body" holds: JSON values of any number and type
            body=TEXT        the answer's bytes
            delay=MS         wait before the answer
            cut=WHERE        close the connection: answer (none is sent), head, body
            keep=no          reports answered 200 are not kept
A value with blanks stands in single quotes.
A report is kept when the status and its code are 200, whether or not the answer arrives.
A request that is malformed is answered 400 with the reason, whatever the plan says.
  2 reports status=503
  * check_hashes body='{"body":[1]}'
  3 reports cut=body
  1 reports codes=200,400,"x",[1] delay=250
)";

enum option_number : int { PORT_FILE = 1, CA, CERT, KEY, KNOWN_HASHES, STORE, ANSWER, HELP_TEXT };

constexpr std::array LONG_OPTIONS = {
    option{"port-file", required_argument, nullptr, PORT_FILE},
    option{"ca", required_argument, nullptr, CA},
    option{"cert", required_argument, nullptr, CERT},
    option{"key", required_argument, nullptr, KEY},
    option{"known-hashes", required_argument, nullptr, KNOWN_HASHES},
    option{"store", required_argument, nullptr, STORE},
    option{"answer", required_argument, nullptr, ANSWER},
    option{"help", no_argument, nullptr, HELP_TEXT},
    option{nullptr, 0, nullptr, 0}};

}  // namespace

options parse_options(int argc, char* argv[]) {
    options parsed;
    const std::map<int, std::string*> texts = {
        {PORT_FILE, &parsed.port_file}, {CA, &parsed.tls.ca},
        {CERT, &parsed.tls.cert},       {KEY, &parsed.tls.key},
        {STORE, &parsed.store},         {KNOWN_HASHES, &parsed.known_hashes}};

    int given = 0;
    // No other thread runs yet. NOLINTNEXTLINE(concurrency-mt-unsafe)
    while ((given = getopt_long(argc, argv, "", LONG_OPTIONS.data(), nullptr)) != -1) {
        const auto text = texts.find(given);
        if (text != texts.end()) {
            *text->second = optarg;
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
        throw std::runtime_error(
            "--ca, --cert and --key are required, and only options are allowed");
    }
    return parsed;
}

}  // namespace collector
