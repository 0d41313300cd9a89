// Sets values of a configuration file by their dotted names and keeps its comments.
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <json/json.h>
#include <CLI/CLI.hpp>

#include "edit_distance.h"

namespace {

/// The values of a configuration by their dotted names.
using settings = std::map<std::string, Json::Value*>;

void collect(Json::Value& object, const std::string& prefix, settings& found) {
    for (const std::string& name : object.getMemberNames()) {
        Json::Value& value = object[name];
        if (value.isObject()) {
            collect(value, prefix + name + '.', found);
        } else {
            found[prefix + name] = &value;
        }
    }
}

std::string nearest(const settings& known, const std::string& key) {
    const auto nearer = [&key](const auto& one, const auto& other) {
        return report_tool::edit_distance(key, one.first) <
               report_tool::edit_distance(key, other.first);
    };
    return std::min_element(known.begin(), known.end(), nearer)->first;
}

bool parse(std::istream& text, Json::Value& value) {
    std::string errors;
    return Json::parseFromStream(Json::CharReaderBuilder(), text, &value, &errors);
}

/// Reads the text as a value of the same kind.
bool convert(const std::string& text, const Json::Value& present, Json::Value& value) {
    if (present.isString()) {
        value = text;
        return true;
    }
    std::istringstream stream(text);
    return parse(stream, value) && value.isBool() == present.isBool() &&
           value.isNumeric() == present.isNumeric();
}

void set(const settings& known, const std::string& assignment) {
    const std::size_t equals = assignment.find('=');
    const std::string key = assignment.substr(0, equals);
    if (equals == std::string::npos) {
        throw std::runtime_error('"' + assignment + "\" is not KEY=VALUE");
    }
    const auto found = known.find(key);
    if (found == known.end()) {
        throw std::runtime_error("there is no \"" + key + "\", the nearest is \"" +
                                 nearest(known, key) + '"');
    }
    Json::Value value;
    if (!convert(assignment.substr(equals + 1), *found->second, value)) {
        throw std::runtime_error("the kind of value does not fit: " + assignment);
    }
    // The comments stay with the place.
    found->second->swapPayload(value);
}

void set_all(const std::string& path, const std::vector<std::string>& assignments) {
    std::ifstream in(path);
    Json::Value root;
    if (!parse(in, root)) {
        throw std::runtime_error("cannot read " + path);
    }
    settings known;
    collect(root, "", known);
    if (known.empty()) {
        throw std::runtime_error("there is no setting in " + path);
    }
    for (const std::string& assignment : assignments) {
        set(known, assignment);
    }
    std::ofstream out(path);
    if (!(out << Json::writeString(Json::StreamWriterBuilder(), root) << std::endl)) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        CLI::App app(
            "Sets values of a configuration file, as in: set-config config.def "
            "sender.server_port=8443\nA value keeps its kind: text, number or truth value. A key "
            "that the file does not have is refused. Comments stay; line breaks become those of "
            "the JSON library.",
            "set-config");
        std::string path;
        std::vector<std::string> assignments;
        app.set_version_flag("--version", "set-config " TEV_VERSION);
        app.add_option("FILE", path)->required();
        app.add_option("KEY=VALUE", assignments);
        CLI11_PARSE(app, argc, argv);
        set_all(path, assignments);
    } catch (const std::exception& error) {
        std::cerr << "set-config: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
