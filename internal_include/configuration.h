#pragma once

#include <stdexcept>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include <json/value.h>

#include "logging.h"

namespace reporter {

/// The configuration or a script cannot be had; what() tells.
class configuration_exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One Lua file as found on disk.
struct script {
    std::string content;
    std::string version;  ///< tag from the file name, empty without one
    std::string path;
};

/// Tag between "_V" and ".lua" in a file name; empty when there is none.
std::string get_version_of_script(const std::string& file_name);

/// Path of the configuration file "config" + `suffix` in `dir`.
std::string build_config_path(const std::string& dir, const std::string& suffix);

/// Comments are allowed and kept. Throws configuration_exception for text that is not JSON.
Json::Value parse_config(const std::string& text);

/// The first of config.def, config.rel and config.stg that reads and parses. Throws
/// configuration_exception when none does.
Json::Value load_config_file(const std::string& dir);

/// Files of `dir` whose name begins with one of `names`, keyed by that name; of several matches the
/// one met last stays. Throws std::runtime_error when the directory cannot be walked.
std::unordered_map<std::string, script> find_lua_scripts(const std::string& dir,
                                                         const std::vector<std::string>& names);
/// The same, and a line in the log for the result.
std::unordered_map<std::string, script> load_scripts(const std::string& dir,
                                                     const std::vector<std::string>& names);

/// A parsed configuration and the scripts that were loaded with it. Lookups move an inner cursor,
/// so one helper belongs to one thread; others take a copy.
class config_helper {
public:
    config_helper(Json::Value root, std::unordered_map<std::string, script> scripts)
        : _root(std::move(root)), _current(_root), _scripts(std::move(scripts)) {
        REPORTER_INFO("config_helper");
    }

    /// A helper over one member of this one's document, without scripts. A missing member gives a
    /// helper on which every lookup misses.
    config_helper get_helper(const std::string& key) const;

    /// Value at a dotted key path: absent is false or 0; an absent string throws
    /// std::runtime_error, a value that does not convert the JSON library's exception.
    /// For bool, unsigned int and std::string.
    template <class T>
    T get(const std::string& key) const {
        const std::string name = move_to_parent(key);
        T value = convert<T>(name);
        // Kept: a conversion that throws leaves the cursor where it is, and the next lookup on
        // this helper starts from there.
        _current = _root;
        REPORTER_INFO("get key: " << key << " : " << value);
        return value;
    }

    /// The string, or `default_value` when the lookup fails in whatever way. For std::string.
    template <class T>
    T get(const std::string& key, const T& default_value) const {
        static_assert(std::is_same_v<T, std::string>, "absent numbers and switches read as 0");
        try {
            return get<T>(key);
        } catch (const std::exception& error) {
            REPORTER_ERROR(error.what());
        }
        REPORTER_INFO("get key: " << key << ", default value: " << default_value);
        return default_value;
    }

    /// Throws configuration_exception when no script of that name was loaded.
    script get_script(const std::string& name) const {
        REPORTER_INFO("get script: " << name);
        const auto found = _scripts.find(name);
        if (found == _scripts.end()) {
            // Kept: the wording, which technicians look for.
            throw configuration_exception("script: " + name + " doesn't found");
        }
        return found->second;
    }

    /// The document as it was parsed.
    const Json::Value& root() const { return _root; }

private:
    /// Walks the cursor to the object that holds the last component, whose name is returned.
    std::string move_to_parent(const std::string& key) const;

    template <class T>
    T convert(const std::string& name) const;

    Json::Value _root;
    mutable Json::Value _current;
    std::unordered_map<std::string, script> _scripts;
};

template <>
bool config_helper::convert<bool>(const std::string& name) const;
template <>
unsigned int config_helper::convert<unsigned int>(const std::string& name) const;
template <>
std::string config_helper::convert<std::string>(const std::string& name) const;

/// Scripts and configuration in one helper. Whatever fails is thrown as configuration_exception.
config_helper load_configuration(const std::string& config_dir, const std::string& scripts_dir,
                                 const std::vector<std::string>& script_names);

}  // namespace reporter
