#include <cerrno>

#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "output.h"
#include "owner.h"
#include "progress.h"
#include "report.h"
#include "storage/reports_storage.h"
#include "store.h"

namespace report_tool {
namespace {

// A device holds a content in memory several times.
constexpr std::size_t largest_content = std::size_t{64} * 1024 * 1024;

struct save_options {
    std::int16_t module = 0;
    std::int16_t type = 0;
    std::uint32_t aggregation = 0;
    std::vector<std::string> files{"-"};
};

std::vector<unsigned char> read_content(const std::string& name) {
    std::ifstream file;
    if (name != "-") {
        file.open(name, std::ios::binary);
    }
    std::istream& input = name == "-" ? std::cin : file;
    std::vector<unsigned char> content;
    char bytes[65536];
    while (input.read(bytes, sizeof bytes) || input.gcount() > 0) {
        content.insert(content.end(), bytes, bytes + input.gcount());
        if (content.size() > largest_content) {
            throw std::runtime_error(name + " has more than " +
                                     readable_size(static_cast<double>(largest_content)) +
                                     ", which a device does not hold: save a part of it");
        }
    }
    if (!input.eof()) {
        const int error = errno;
        throw std::runtime_error(name + " cannot be read by the data directory's owner, " +
                                 error_text(error) +
                                 (error == EACCES ? ": save - <FILE reads it as you" : ""));
    }
    return content;
}

Json::Value save_file(reporter::reports_storage& store, const save_options& wanted,
                      const std::string& name) {
    const reporter::report report{wanted.module, wanted.type, read_content(name),
                                  wanted.aggregation};
    Json::Value saved;
    saved["file"] = name;
    saved["size"] = Json::UInt64{report.content.size()};
    saved["id"] = Json::Int64{in_turn([&] { return store.save_report(report); })};
    return saved;
}

int save(const save_options& wanted, const common_options& options) {
    require_owner();
    const auto store = open_store();
    progress shown(wanted.files.size(), wanted.files.size());
    Json::Value all(Json::arrayValue);
    int status = done;
    for (const std::string& name : wanted.files) {
        try {
            const Json::Value& saved = all.append(save_file(*store, wanted, name));
            shown.clear();
            if (saved["id"] == 0) {
                throw std::runtime_error(name + " was refused, as the store has no room for " +
                                         readable_size(saved["size"].asDouble()) +
                                         ": see db_max_size and the free space");
            }
            if (!options.json) {
                std::cout << saved["id"].asString() << "  " << printable(name) << '\n';
            }
        } catch (const std::exception& error) {
            std::cerr << "tev-report: " << printable(error.what()) << '\n';
            status = failed;
        }
        shown.step();
    }
    if (options.json) {
        print_json(all);
    }
    return status;
}

}  // namespace

command save_command() {
    const auto wanted = std::make_shared<save_options>();
    const auto add_options = [wanted](CLI::App& app) {
        app.add_option("--module", wanted->module, "Who produced it, -32768 to 32767")->required();
        app.add_option("--type", wanted->type, "Kind of report within the module, likewise")
            ->required();
        app.add_option("--aggregation", wanted->aggregation,
                       "Count like reports of this number as one; 0, the default: never");
        app.add_option("FILE", wanted->files,
                       "A report's content each; -, the default, is standard input");
    };
    return {"save", "Save files as reports, as a report source does", add_options,
            [wanted](const common_options& options) { return save(*wanted, options); }};
}

}  // namespace report_tool
