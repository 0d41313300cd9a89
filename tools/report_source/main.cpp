// A report source: puts the reports of its standard input into the agent's store, for the demo and
// the tests. It shows what a program of the device does to have reports sent.

#include <cstdlib>

#include <exception>
#include <iostream>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "common.h"
#include "filter.h"
#include "input.h"
#include "sha256.h"
#include "storage/open_reports_storage.h"
#include "sys_info.h"

namespace {

constexpr const char* HELP =
    R"(Saves the reports that standard input holds, one JSON object a line:

  {"module": 7, "type": 1, "aggregationid": 3, "content": "text"}
  {"module": 7, "type": 1, "content_base64": "AAH/"}
  {"module": 7, "type": 1, "size": 4096, "seed": 1}   as many pseudo-random bytes
  {"ext_aggregation": {"caller": "...", "filehash": "..."}}
                           another occurrence of the stored report whose content names both

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

void take_all(unsigned long copies, bool quiet) {
    report_source source;
    std::string text;
    for (unsigned number = 1; std::getline(std::cin, text); ++number) {
        try {
            const Json::Value line = reporter::json_parse(text);
            for (unsigned long copy = 0; copy < copies; ++copy) {
                const std::string result = source.take(line);
                if (!quiet) {
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
        CLI::App app(HELP, "report-source");
        unsigned long copies = 1;
        bool quiet = false;
        app.set_version_flag("--version", "report-source " TEV_VERSION);
        app.add_option("--count", copies, "Each line so many times");
        app.add_flag("--quiet", quiet, "Print no results");
        CLI11_PARSE(app, argc, argv);
        take_all(copies, quiet);
    } catch (const std::exception& error) {
        std::cerr << "report-source: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
