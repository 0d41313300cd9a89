#include "lua_sandbox.h"

#include "data_dir.h"
#include "json_io.h"
#include "lua/table_creator.h"
#include "lua_sandbox_natives.h"
#include "sys_info.h"

namespace reporter {
namespace {

constexpr long long reporter_module_id = 1010;

// All of the standard library that a script may see.
constexpr const char* standard_globals[] = {
    "coroutine", "os",     "next",     "type",     "math",           "print",
    "table",     "pairs",  "pcall",    "error",    "select",         "string",
    "unpack",    "xpcall", "tostring", "tonumber", "collectgarbage",
};

// Sets values as globals of the interpreter and copies each into the table that becomes the
// script's environment.
class environment_builder {
public:
    explicit environment_builder(lua::lua_state& state) : _state(state), _table(state) {}

    void copy(const std::string& name, const std::string& global) {
        _table.set_from_global_value(name, global.c_str());
    }

    template <class T>
    void set(const std::string& name, const T& value) {
        _state.set_global(name.c_str(), value);
        copy(name, name);
    }

    template <class Function>
    void register_function(const std::string& name, Function function) {
        _state.set_function(name, function);
    }

private:
    lua::lua_state& _state;
    lua::table_creator _table;
};

void add_settings(environment_builder& env, const config_helper& config, long long db_max_size,
                  const std::string& dispatching_time) {
    env.set("CONFIG", json_styled(config.root()));
    env.set("PATH_TO_DB", path_to_db());
    env.set("DB_MAX_SIZE", db_max_size);
    env.set("DISPATCHING_TIME", dispatching_time);
    env.set("REPORTER_DATA_DIR", REPORTER_DATA_DIR);
    env.set("REPORTER_MODULE_ID", reporter_module_id);
}

void add_natives(environment_builder& env) {
    for (const auto& native : store_natives) {
        env.register_function(native.name, native.function);
        env.copy(native.name, native.name);
    }
    for (const auto& fact : get_sys_info()) {
        env.set(fact.first, fact.second);
    }
    for (const auto& native : logging_natives) {
        env.register_function(native.name, native.function);
    }
    for (const auto& native : logging_natives) {
        env.copy(native.name, native.name);
    }
    for (const auto& native : string_natives) {
        env.register_function(native.name, native.function);
    }
    for (const char* name : {"sha256", "deflate", "inflate", "base64_decode", "base64_encode"}) {
        env.copy(name, name);
    }
}

}  // namespace

std::string get_path_to_sqlite3_lua_lib() {
    return REPORTER_DATA_DIR + "lib/lua/";
}

std::string get_default_pre_script() {
    const std::string dir = get_path_to_sqlite3_lua_lib();
    REPORTER_INFO("create_lua_sandbox_impl: " << dir);
    return "package.path = package.path .. \"?;" + dir +
           "?.lua\"\n"
           "package.cpath = package.cpath .. \"?;" +
           dir +
           "?.so\"\n"
           "require \"sqlite3\"\njson = require \"json\"\n";
}

lua::lua_state create_lua_sandbox_impl(
    const config_helper& config, const std::string& main_script, const std::string& pre_script,
    const std::vector<std::pair<std::string, std::string>>& globals) {
    const auto db_max_size = config.get<unsigned int>("db_max_size");
    const auto dispatching_time = config.get<std::string>("processor.dispatching_time");
    REPORTER_INFO("db_max_size: " << db_max_size);
    REPORTER_INFO("dispatching_time: " << dispatching_time);

    lua::lua_state state;
    REPORTER_INFO("pre_script: " << pre_script);
    REPORTER_INFO("main_script: " << main_script);
    state.run_script(pre_script);

    environment_builder env(state);
    for (const char* name : standard_globals) {
        env.copy(name, name);
    }
    for (const auto& global : globals) {
        env.copy(global.first, global.second);
    }
    add_settings(env, config, db_max_size, dispatching_time);
    add_natives(env);
    state.set_env("env");

    state.run_script(main_script);
    REPORTER_INFO("lua sandbox was created");
    return state;
}

lua_sandbox::lua_sandbox(const config_helper& config, const std::string& main_script)
    : _globals{{"sqlite3", "sqlite3"}, {"json", "json"}},
      _config(config),
      _main_script(main_script),
      _pre_script(get_default_pre_script()) {}

lua_sandbox::lua_sandbox(const config_helper& config, const std::string& main_script,
                         const std::string& pre_script)
    : _config(config), _main_script(main_script), _pre_script(pre_script) {}

void lua_sandbox::init() {
    if (_state != nullptr) {
        return;
    }
    REPORTER_INFO("lua_sandbox::init");
    _state = std::make_unique<lua::lua_state>(
        create_lua_sandbox_impl(_config, _main_script, _pre_script, _globals));
    REPORTER_INFO("new sandbox was created");
}

lua::lua_state& lua_sandbox::get() {
    init();
    return *_state;
}

void lua_sandbox::release() {
    _state.reset();
    REPORTER_INFO("lua_sandbox::release ");
}

}  // namespace reporter
