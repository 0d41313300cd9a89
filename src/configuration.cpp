#include "configuration.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/filesystem/operations.hpp>

#include "common.h"
#include "json_io.h"

namespace reporter {
namespace {

// In order: a usable file with an earlier suffix shadows the later ones.
constexpr const char* config_suffixes[] = {"def", "rel", "stg"};

bool begins_with(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

std::string get_version_of_script(const std::string& file_name) {
    const std::string mark = "_V";
    const auto begin = file_name.find(mark);
    if (begin == std::string::npos) {
        return {};
    }
    const auto end = file_name.find(".lua", begin);
    if (end == std::string::npos) {
        return {};
    }
    const auto first = begin + mark.size();
    return file_name.substr(first, end - first);
}

std::string build_config_path(const std::string& dir, const std::string& suffix) {
    return dir + "/config." + suffix;
}

Json::Value parse_config(const std::string& text) {
    Json::Value value;
    if (!json_read(text, value, json_comments::keep)) {
        throw configuration_exception("bad configuration");
    }
    return value;
}

Json::Value load_config_file(const std::string& dir) {
    for (const char* suffix : config_suffixes) {
        std::string path;
        try {
            path = build_config_path(dir, suffix);
            Json::Value value = parse_config(read_file(path));
            REPORTER_INFO("config: " << path << " was loaded");
            return value;
        } catch (...) {
            REPORTER_INFO("inspect: " << path);
        }
    }
    // Kept: the wording, which technicians look for.
    throw configuration_exception("config doesn't found");
}

std::unordered_map<std::string, script> find_lua_scripts(const std::string& dir,
                                                         const std::vector<std::string>& names) {
    REPORTER_INFO("find_lua_scripts: path: " << dir);
    std::unordered_map<std::string, script> found;
    for (const auto& entry : boost::filesystem::directory_iterator(dir)) {
        const std::string path = entry.path().string();
        REPORTER_INFO("current path: " << path);
        if (!boost::filesystem::is_regular_file(entry.status())) {
            continue;
        }
        const std::string file_name = entry.path().filename().string();
        REPORTER_INFO("current file: " << file_name);
        for (const auto& name : names) {
            if (begins_with(file_name, name)) {
                std::string version = get_version_of_script(file_name);
                found[name] = script{read_file(path), std::move(version), path};
            }
        }
    }
    return found;
}

std::unordered_map<std::string, script> load_scripts(const std::string& dir,
                                                     const std::vector<std::string>& names) {
    auto scripts = find_lua_scripts(dir, names);
    for (const auto& entry : scripts) {
        REPORTER_INFO(entry.second.path << " version: " << entry.second.version);
    }
    return scripts;
}

config_helper config_helper::get_helper(const std::string& key) const {
    return config_helper(_root[key], {});
}

std::string config_helper::move_to_parent(const std::string& key) const {
    std::vector<std::string> components;
    boost::split(components, key, boost::is_any_of("."));
    std::string name = std::move(components.back());
    components.pop_back();
    for (const auto& component : components) {
        _current = Json::Value(_current[component]);
    }
    return name;
}

template <>
bool config_helper::convert<bool>(const std::string& name) const {
    return _current[name].asBool();
}

template <>
unsigned int config_helper::convert<unsigned int>(const std::string& name) const {
    return static_cast<unsigned int>(_current[name].asInt64());
}

template <>
std::string config_helper::convert<std::string>(const std::string& name) const {
    const Json::Value& value = _current[name];
    if (!value.isString()) {
        throw std::runtime_error("key: " + name + " is not string");
    }
    return value.asString();
}

config_helper load_configuration(const std::string& config_dir, const std::string& scripts_dir,
                                 const std::vector<std::string>& script_names) {
    try {
        REPORTER_INFO("load_configuration: " << scripts_dir);
        auto scripts = load_scripts(scripts_dir, script_names);
        REPORTER_INFO("scripts were loaded");
        Json::Value root = load_config_file(config_dir);
        return config_helper(std::move(root), std::move(scripts));
    } catch (const std::exception& error) {
        throw configuration_exception(error.what());
    }
}

}  // namespace reporter
