#include <iomanip>
#include <iostream>
#include <memory>
#include <stdexcept>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "content.h"
#include "json_io.h"
#include "look.h"
#include "output.h"
#include "owner.h"
#include "selection.h"

namespace report_tool {
namespace {

struct show_options {
    unsigned int id = 0;
    bool content = false;
    bool yes = false;
};

Json::Value read_report(look& store, unsigned int id) {
    Json::Value report;
    store.read({id}, [&](unsigned int, const std::string* text) {
        if (text == nullptr) {
            throw std::runtime_error("no report has the id " + std::to_string(id) +
                                     ": `tev-report list` shows those that there are");
        }
        if (!reporter::json_read(*text, report, reporter::json_comments::skip) ||
            !report.isObject()) {
            throw std::runtime_error("report " + std::to_string(id) +
                                     " is no JSON object, so a pass leaves it where it is");
        }
    });
    return report;
}

void print_members(const Json::Value& report) {
    for (const std::string& name : report.getMemberNames()) {
        const bool is_time = name == "first_time" || name == "last_time";
        if (name != "content") {
            std::cout << std::left << std::setw(15) << printable(name)
                      << (is_time ? time_of(report, name.c_str()) : text_of(report, name.c_str()))
                      << '\n';
        }
    }
}

int print_content(const Json::Value& report) {
    const auto bytes = decode_content(report);
    if (!bytes) {
        throw std::runtime_error("the content is not deflate+base64 but " +
                                 text_of(report, "encoding") +
                                 ", which only its storage script knows: --json shows it as it is");
    }
    std::cout << (is_text(*bytes) ? *bytes : hex_dump(*bytes));
    if (report.isMember("size") &&
        number_of(report, "size") != static_cast<double>(bytes->size())) {
        std::cerr << "tev-report: the content is damaged: " << bytes->size() << " bytes of "
                  << text_of(report, "size") << " can be decoded\n";
        return failed;
    }
    return done;
}

int show(const show_options& wanted, const common_options& options) {
    require_owner();
    Json::Value report = read_report(*open_look(wanted.yes), wanted.id);
    if (options.json) {
        if (wanted.content) {
            unpack_content(report);
        }
        print_json(report);
        return done;
    }
    if (wanted.content) {
        return print_content(report);
    }
    print_members(report);
    return done;
}

}  // namespace

command show_command() {
    const auto wanted = std::make_shared<show_options>();
    const auto add_options = [wanted](CLI::App& app) {
        app.add_option("ID", wanted->id, "The report's id, as list shows it")->required();
        app.add_flag("--content", wanted->content,
                     "Its content alone, decoded; as hex where it is no text");
        add_yes(app, wanted->yes);
    };
    return {"show", "One report as it goes to the server", add_options,
            [wanted](const common_options& options) { return show(*wanted, options); }};
}

}  // namespace report_tool
