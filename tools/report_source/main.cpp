// A report source: puts the reports of its standard input into the agent's store, for the demo and
// the tests. It shows what a program of the device does to have reports sent.

#include <getopt.h>

#include <cstdlib>

#include <iostream>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include <json/value.h>

#include "common.h"
#include "filter.h"
#include "input.h"
#include "sha256.h"
#include "storage/open_reports_storage.h"
#include "sys_info.h"

namespace {

constexpr const char* HELP =
    R"(report-source: saves the reports that standard input holds, one JSON object a line

  {"module": 7, "type": 1, "aggregationid": 3, "content": "text"}
  {"module": 7, "type": 1, "content_base64": "AAH/"}
  {"module": 7, "type": 1, "size": 4096, "seed": 1}   as many pseudo-random bytes
  {"ext_aggregation": {"caller": "...", "filehash": "..."}}
                           another occurrence of the stored report whose content names both

  --count N   each line N times
  --quiet     print no results

Runs at the device's paths (see tools/device-root). Prints a line per result:
  saved id=ID module=N type=N size=BYTES sha256=HASH   a report of its own
  joined id=ID ...                                     counted with one saved in this run
  counted N                                            its occurrences now, 0: there is none
  refused                                              by the device's switches, or as too large
A line that cannot be read or saved ends the run with status 1; what came before it stays.
)";

class report_source {
public:
    /// The result of one line of input, as it is printed. Throws a std::exception that says what is
    /// wrong with the line or with the store; nothing is saved then.
    std::string take(const Json::Value& line) {
        if (!line.isObject()) {
            throw std::runtime_error("this is not a JSON object");
        }
        return line.isMember("ext_aggregation") ? count(line["ext_aggregation"]) : save(line);
    }

private:
    std::string save(const Json::Value& line) {
        const reporter::report record = read_report(line);
        const long id = _takes_in(record) ? _storage->save_report(record) : 0;
        if (id == 0) {
            return "refused";
        }
        const std::string content(record.content.begin(), record.content.end());
        return (_saved.insert(id).second ? "saved id=" : "joined id=") + std::to_string(id) +
               " module=" + std::to_string(record.module) + " type=" + std::to_string(record.type) +
               " size=" + std::to_string(content.size()) + " sha256=" +
               reporter::sha256(content.data(), static_cast<unsigned int>(content.size()));
    }

    std::string count(const Json::Value& names) {
        auto data = read_names(names);
        return "counted " + std::to_string(_storage->ext_aggregation(data));
    }

    reporter::default_filter _takes_in{reporter::get_sys_info()};
    std::shared_ptr<reporter::reports_storage> _storage = reporter::open_reports_storage();
    std::set<long> _saved;
};

struct options {
    unsigned long count = 1;
    bool quiet = false;
};

// NOLINTBEGIN(concurrency-mt-unsafe): there is one thread only.
options parse_options(int argc, char* argv[]) {
    static const option known[] = {{"count", required_argument, nullptr, 'c'},
                                   {"quiet", no_argument, nullptr, 'q'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    options parsed;
    for (int given = 0; (given = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        if (given == 'c') {
            char* end = nullptr;
            parsed.count = std::strtoul(optarg, &end, 10);
            if (*optarg == '\0' || *end != '\0') {
                throw std::runtime_error("--count takes a number");
            }
        } else if (given == 'q') {
            parsed.quiet = true;
        } else if (given == 'h') {
            std::cout << HELP;
            std::exit(EXIT_SUCCESS);
        } else {
            throw std::runtime_error("see --help");
        }
    }
    return parsed;
}
// NOLINTEND(concurrency-mt-unsafe)

void take_all(const options& options) {
    report_source source;
    std::string text;
    for (unsigned number = 1; std::getline(std::cin, text); ++number) {
        try {
            const Json::Value line = reporter::json_parse(text);
            for (unsigned long copy = 0; copy < options.count; ++copy) {
                const std::string result = source.take(line);
                if (!options.quiet) {
                    std::cout << result << std::endl;
                }
            }
        } catch (const std::exception& error) {
            throw std::runtime_error("line " + std::to_string(number) + ": " + error.what());
        }
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        take_all(parse_options(argc, argv));
    } catch (const std::exception& error) {
        std::cerr << "report-source: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
