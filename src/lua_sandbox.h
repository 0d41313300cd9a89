#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "configuration.h"
#include "lua/lua_state.h"

namespace reporter {

/// Directory of the Lua modules that scripts load, with its trailing slash.
std::string get_path_to_sqlite3_lua_lib();

/// Text that sets the module search paths and loads the modules `sqlite3` and `json` as globals.
std::string get_default_pre_script();

/// Builds an interpreter in which `main_script` has run with the table "env" for its globals. In it
/// are a few standard globals, those named by `globals` as (name inside, name outside),
/// configuration, device facts and natives. `pre_script` runs first, unrestricted. The caller owns
/// the interpreter. Throws lua_exception when a script fails, and what the configuration throws for
/// a missing setting.
lua::lua_state create_lua_sandbox_impl(
    const config_helper& config, const std::string& main_script, const std::string& pre_script,
    const std::vector<std::pair<std::string, std::string>>& globals);

/// An interpreter for one restricted script, built on first use and dropped and rebuilt at will.
/// What the script keeps in variables goes with it. One thread at a time.
class lua_sandbox {
public:
    /// With the default pre-script and its modules `sqlite3` and `json` visible inside.
    lua_sandbox(const config_helper& config, const std::string& main_script);
    /// With this pre-script, and none of its globals visible inside.
    lua_sandbox(const config_helper& config, const std::string& main_script,
                const std::string& pre_script);
    lua_sandbox(const lua_sandbox&) = delete;
    lua_sandbox& operator=(const lua_sandbox&) = delete;
    lua_sandbox(lua_sandbox&&) = default;
    lua_sandbox& operator=(lua_sandbox&&) = delete;
    ~lua_sandbox() = default;

    /// Builds the interpreter if there is none. Throws like create_lua_sandbox_impl; the next call
    /// then tries again.
    void init();

    /// The interpreter, built if there is none, with what that throws. Valid until release().
    lua::lua_state& get();

    /// Destroys the interpreter and with it everything the script holds open.
    void release();

private:
    std::vector<std::pair<std::string, std::string>> _globals;  ///< (name inside, name outside)
    config_helper _config;
    std::string _main_script;
    std::string _pre_script;
    std::unique_ptr<lua::lua_state> _state;
};

}  // namespace reporter
