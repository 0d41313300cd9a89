#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <functional>
#include <regex>
#include <stdexcept>

#include "child.h"
#include "data_dir.h"
#include "doctor/examination.h"
#include "lua_sandbox.h"
#include "output.h"
#include "storage/open_reports_storage.h"

namespace report_tool::doctor {
namespace {

constexpr unsigned int longest_run_seconds = 10;

struct function {
    const char* name;
    const char* without;
};
constexpr function functions[] = {
    {"save_report", "no report can be saved"},
    {"ext_aggregation", "no further occurrence is counted"},
    {"get_all_dispatch_times", "no pass finds anything to send"},
    {"get_ids_by_dispatch_time", "no pass finds anything to send"},
    {"get_report_as_json_by_id", "no report can be read"},
    {"remove_report_by_id", "what is sent is never removed, and goes out with every pass"},
};

// Other files whose name begins like the script's.
std::string others_than(const std::string& chosen, const std::string& dir) {
    std::vector<std::string> others;
    const std::string prefix = reporter::storage_script;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        const std::string name = entry.path().filename();
        if (name.compare(0, prefix.size(), prefix) == 0 && entry.path() != chosen &&
            entry.is_regular_file()) {
            others.push_back(name);
        }
    }
    return join(others);
}

bool ends_in_lua(const std::string& path) {
    return path.size() > 4 && path.compare(path.size() - 4, 4, ".lua") == 0;
}

// The script that the agent takes, by its own search; nothing without one.
std::optional<reporter::script> choose(group& points) {
    const std::string dir = reporter::REPORTER_DATA_DIR + "lua";
    if (access(dir.c_str(), R_OK | X_OK) != 0) {
        points.fault("file", errno == ENOENT ? "missing" : "access", dir + ": " + error_text(errno),
                     "install the agent, readable for its user");
        return std::nullopt;
    }
    try {
        auto found = reporter::find_lua_scripts(dir, {reporter::storage_script});
        if (found.empty()) {
            points.fault("file", "missing",
                         std::string("no ") + reporter::storage_script + " in " + dir,
                         "install the storage script");
            return std::nullopt;
        }
        reporter::script chosen = found.begin()->second;
        const std::string others = others_than(chosen.path, dir);
        if (!ends_in_lua(chosen.path)) {
            points.warning(
                "file", "left-over",
                chosen.path + " is taken, and " + (others.empty() ? "no other" : others) +
                    " is not",
                "move what is no script out of the directory: the last in its order wins");
        } else if (!others.empty()) {
            points.warning("file", "several", chosen.path + " is taken, and " + others + " is not",
                           "leave one file: the last in the directory's order wins");
        } else {
            points.ok("file", chosen.path + ", version " +
                                  (chosen.version.empty() ? "none" : chosen.version));
        }
        return chosen;
    } catch (const std::exception& error) {
        points.fault(
            "file", "access", error.what(),
            "make the directory and every file in it that begins like the script readable");
        return std::nullopt;
    }
}

// Error of the work in a process of its own; empty when it succeeds.
std::string error_of(const std::function<void()>& work) {
    const child_answer answer = in_child(longest_run_seconds, [&] {
        work();
        return std::string();
    });
    switch (answer.how) {
        case child_answer::end::returned:
            return "";
        case child_answer::end::threw:
            return answer.text;
        case child_answer::end::too_late:
            return "does not come to its end within " + std::to_string(longest_run_seconds) + " s";
        case child_answer::end::died:
            break;
    }
    return "ends the process";
}

// Line numbers of the chunk as it is run count a line more than the file.
std::string with_place(const std::string& error, const std::string& path) {
    // Lua shows 60 characters of a chunk at most. Without a bound a long message would need more
    // stack than there is, as the library goes a level deeper for each character.
    static const std::regex place(R"(\[string "[^\n]{0,60}"\]:(\d{1,9}))");
    std::smatch match;
    if (!std::regex_search(error, match, place)) {
        return path + ": " + error;
    }
    return path + ":" + std::to_string(std::stoul(match[1]) - 1) + match.suffix().str();
}

bool compiles(group& points, const reporter::script& script) {
    reporter::lua::lua_state state;
    // Lua cuts longer names short.
    const std::string name = "=script";
    if (luaL_loadbuffer(state.get_lua(), script.content.data(), script.content.size(),
                        name.c_str()) == 0) {
        points.ok("syntax", "compiles");
        return true;
    }
    const std::string error = lua_tostring(state.get_lua(), -1);
    points.fault("syntax", "syntax", script.path + error.substr(name.size() - 1),
                 "install the storage script again");
    return false;
}

// What the script stands on: an empty one in its place loads the modules alone.
bool modules_load(group& points, const reporter::config_helper& config) {
    const std::string error = error_of([&] { reporter::lua_sandbox(config, "").init(); });
    if (error.empty()) {
        points.ok("modules",
                  "sqlite3 and json load from " + reporter::get_path_to_sqlite3_lua_lib());
        return true;
    }
    static const std::regex module("module '([^']*)' not found");
    std::smatch match;
    const bool missing = std::regex_search(error, match, module);
    points.fault("modules", missing ? "missing" : "failing",
                 missing ? "module " + match[1].str() + " is not found" : error,
                 "install it below " + reporter::get_path_to_sqlite3_lua_lib() +
                     " or where Lua looks for modules");
    return false;
}

bool loads(group& points, const reporter::config_helper& config, const reporter::script& script) {
    const std::string error =
        error_of([&] { reporter::lua_sandbox(config, script.content).init(); });
    if (error.empty()) {
        points.ok("loads", "runs to its end");
        return true;
    }
    points.fault("loads", "failing", with_place(error, script.path),
                 "mend the script at that line");
    return false;
}

bool has_functions(group& points, const reporter::config_helper& config,
                   const reporter::script& script) {
    const std::string error = error_of([&] {
        std::vector<std::string> missing;
        reporter::lua_sandbox sandbox(config, script.content);
        for (const function& one : functions) {
            if (!sandbox.get().is_function(one.name)) {
                missing.push_back(std::string(one.name) + ": " + one.without);
            }
        }
        if (!missing.empty()) {
            throw std::runtime_error(join(missing, "; "));
        }
    });
    if (error.empty()) {
        points.ok("functions", "all six are there");
        return true;
    }
    points.fault("functions", "missing", error, "install the storage script again");
    return false;
}

}  // namespace

void examine_script(examination& whole) {
    group points(whole, "script");
    const auto script = choose(points);
    if (!script || !compiles(points, *script)) {
        return;
    }
    if (!whole.config || whole.store == nullptr) {
        points.skipped("loads", whole.config ? "it runs under the store's lock only"
                                             : "it runs with a configuration only");
        return;
    }
    try {
        // A copy, as a lookup that fails leaves its helper in disorder.
        const reporter::config_helper config = *whole.config;
        config.get<unsigned int>("db_max_size");
        config.get<std::string>("processor.dispatching_time");
    } catch (const std::exception& error) {
        points.skipped("loads",
                       std::string("no script runs with this configuration: ") + error.what());
        return;
    }
    if (modules_load(points, *whole.config) && loads(points, *whole.config, *script) &&
        has_functions(points, *whole.config, *script)) {
        whole.script = script->content;
    }
}

}  // namespace report_tool::doctor
