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

/// The configuration or a script is missing or unusable; what() says which.
class configuration_exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One Lua file as found on disk; a copy, which later changes of the file do not reach.
struct script {
    std::string content;
    std::string version;  ///< tag from the file name, empty without one
    std::string path;
};

/// Tag between "_V" and ".lua" in a file name; empty when there is none.
std::string get_version_of_script(const std::string& file_name);

/// Path of the configuration file "config" + `suffix` in `dir`.
std::string build_config_path(const std::string& dir, const std::string& suffix);

/// The document of a configuration file. Comments are allowed and stay with the values. Throws
/// configuration_exception for text that is not JSON or nests too deeply.
Json::Value parse_config(const std::string& text);

/// The first of config.def, config.rel and config.stg that reads and parses. The log names each
/// file that was passed over, without a reason. Throws configuration_exception when none is left.
Json::Value load_config_file(const std::string& dir);

/// Files of `dir` whose name begins with one of `names`, keyed by that name. Of several matches the
/// one met last stays, and the system's order is not sorted. Directories below are not entered.
/// Throws std::runtime_error when the directory or a matching file cannot be read.
std::unordered_map<std::string, script> find_lua_scripts(const std::string& dir,
                                                         const std::vector<std::string>& names);
/// The same, and a line in the log for the result.
std::unordered_map<std::string, script> load_scripts(const std::string& dir,
                                                     const std::vector<std::string>& names);

/// A parsed configuration and the scripts that were loaded with it. One helper belongs to one
/// thread, as lookups move an inner cursor; other threads take a copy, which has a cursor of its
/// own. Each value that is read is logged.
class config_helper {
public:
    /// Owns document and scripts.
    config_helper(Json::Value root, std::unordered_map<std::string, script> scripts)
        : _root(std::move(root)), _current(_root), _scripts(std::move(scripts)) {
        REPORTER_INFO("config_helper");
    }

    /// A helper over a copy of one member of this document, without scripts. `key` is one name, no
    /// path. A missing member gives a helper on which every lookup misses. Throws the JSON
    /// library's exception when this document is no object.
    config_helper get_helper(const std::string& key) const;

    /// Value at a dotted key path, for bool, unsigned int and std::string. Absent is false or 0. An
    /// absent string throws std::runtime_error, and so does a value of another type. Any other
    /// value that does not convert throws the JSON library's exception. An unsigned int is cut to
    /// 32 bits: -1 reads as 4294967295.
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

    /// The string, or `default_value` when the lookup fails in whatever way. The failure is logged
    /// as an error. For std::string only.
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

    /// A copy of the script. Throws configuration_exception when no script of that name was loaded.
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
    /// Walks the cursor to the object that holds the last component, and returns its name.
    std::string move_to_parent(const std::string& key) const;

    /// Reads the member of that name where the cursor stands; throws as get() does.
    template <class T>
    T convert(const std::string& name) const;

    Json::Value _root;
    mutable Json::Value _current;  ///< cursor of the lookups; `_root` between two that succeed
    std::unordered_map<std::string, script> _scripts;
};

template <>
bool config_helper::convert<bool>(const std::string& name) const;
template <>
unsigned int config_helper::convert<unsigned int>(const std::string& name) const;
template <>
std::string config_helper::convert<std::string>(const std::string& name) const;

/// Scripts and configuration in one helper. The scripts are read first. Whatever fails is thrown as
/// configuration_exception with the text of the failure.
config_helper load_configuration(const std::string& config_dir, const std::string& scripts_dir,
                                 const std::vector<std::string>& script_names);

}  // namespace reporter
