#include "lua/lua_state.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

namespace reporter::lua {
namespace {

constexpr const char* global_env = "_G";

std::string pop_message(lua_State* lua) {
    std::string message = lua_tostring_impl(lua, "unknown error");
    lua_pop(lua, 1);
    return message;
}

// Pushes the environment's variable of that name. Below it stays the environment's table, unless
// that is the global one. Where the environment is no table, the variable is nil.
void push_variable(lua_State* lua, const std::string& env, const char* name) {
    if (env == global_env) {
        lua_getglobal(lua, name);
        return;
    }
    lua_getglobal(lua, env.c_str());
    if (!lua_istable(lua, -1)) {
        lua_pushnil(lua);
        return;
    }
    lua_getfield(lua, -1, name);
}

int push_bytes(lua_State* lua) {
    const auto& bytes = *static_cast<const std::string*>(lua_touserdata(lua, 1));
    lua_pushlstring(lua, bytes.data(), bytes.size());
    return 1;
}

// Expects push_bytes on the top and leaves the result there when it succeeds. The C++ objects live
// only in here, so that no Lua error jumps over them.
bool call_native(lua_State* lua, const char* data, std::size_t size) {
    try {
        const auto function =
            reinterpret_cast<lua_state::string_function>(lua_touserdata(lua, lua_upvalueindex(1)));
        REPORTER_INFO("calling C function from lua, input size: " << size);
        std::string result = function(data, static_cast<unsigned int>(size));
        // Kept: "outpit" is the spelling of the log.
        REPORTER_INFO("calling C function from lua, outpit size: " << result.size());
        lua_pushlightuserdata(lua, &result);
        return lua_pcall(lua, 1, 1, 0) == 0;
    } catch (const std::exception&) {
        return false;
    }
}

int string_function_adapter(lua_State* lua) {
    std::size_t size = 0;
    const char* data = lua_gettop(lua) > 0 ? lua_tolstring(lua, -1, &size) : nullptr;
    lua_pushcfunction(lua, push_bytes);
    if (!call_native(lua, data, size)) {
        return luaL_error(lua, "not enough memory for the result of a native function");
    }
    return 1;
}

// Beyond the target's range this gives the nearest value, and 0 for what is no number, as the
// device's processor does. A plain cast is undefined there.
template <class T>
T truncate_to(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value <= static_cast<double>(std::numeric_limits<T>::min())) {
        return std::numeric_limits<T>::min();
    }
    if (value >= static_cast<double>(std::numeric_limits<T>::max())) {
        return std::numeric_limits<T>::max();
    }
    return static_cast<T>(value);
}

void require_result(lua_State* lua, int lua_type_wanted, const char* message) {
    if (lua_type(lua, -1) != lua_type_wanted) {
        throw lua_exception(message);
    }
}

template <class T>
T pop_number(lua_State* lua) {
    require_result(lua, LUA_TNUMBER, "lua: bad return type, must be number");
    const T value = truncate_to<T>(lua_tonumber(lua, -1));
    lua_pop(lua, 1);
    return value;
}

template <class T>
std::vector<T> pop_array(lua_State* lua) {
    require_result(lua, LUA_TTABLE, "lua: bad return type, must be table( array )");
    std::vector<T> values;
    values.reserve(lua_objlen(lua, -1));
    lua_pushnil(lua);
    while (lua_next(lua, -2) != 0) {
        values.push_back(truncate_to<T>(lua_tonumber(lua, -1)));
        lua_pop(lua, 1);
    }
    lua_pop(lua, 1);
    return values;
}

}  // namespace

std::string lua_tostring_impl(lua_State* lua, const std::string& fallback) {
    std::size_t size = 0;
    const char* text = lua_gettop(lua) > 0 ? lua_tolstring(lua, -1, &size) : nullptr;
    return text != nullptr ? std::string(text, size) : fallback;
}

lua_state::lua_state() : _lua(luaL_newstate()) {
    if (_lua == nullptr) {
        throw lua_exception("Can't create lua state");
    }
    luaL_openlibs(_lua);
}

lua_state::lua_state(lua_state&& other) noexcept
    : _lua(std::exchange(other._lua, nullptr)), _env(std::move(other._env)) {
    REPORTER_INFO("lua_state &&");
}

lua_state& lua_state::operator=(lua_state&& other) noexcept {
    if (this == &other) {
        return *this;
    }
    REPORTER_INFO("operator=( lua_state && )");
    // Kept: an interpreter held here is not closed. Owners assign only into moved-from states.
    _lua = std::exchange(other._lua, nullptr);
    _env = std::move(other._env);
    return *this;
}

lua_state::~lua_state() {
    if (_lua == nullptr) {
        return;
    }
    REPORTER_INFO("calling lua_close");
    lua_close(_lua);
}

int lua_state::get_used_memory() {
    return lua_gc(_lua, LUA_GCCOUNT, 0);
}

void lua_state::run_full_gc() {
    REPORTER_INFO("lua_gc run full: " << lua_gc(_lua, LUA_GCCOLLECT, 0));
}

void lua_state::run_script(const std::string& text) {
    if (text.empty()) {
        return;
    }
    const std::string chunk = "setfenv( 1, " + _env + " )\n" + text;
    const detail::stack_guard guard(_lua);
    if (luaL_loadstring(_lua, chunk.c_str()) == 0 && lua_pcall(_lua, 0, LUA_MULTRET, 0) == 0) {
        return;
    }
    const std::string message = pop_message(_lua);
    // Kept: the log spells it otherwise than the exception.
    REPORTER_ERROR("cant't run script: " << message);
    throw lua_exception("can't run script, error: " + message);
}

void lua_state::set_env(const std::string& name) {
    set_global(name.c_str());
    _env = name;
}

void lua_state::set_global(const char* name) {
    lua_setglobal(_lua, name);
}

void lua_state::set_global(const char* name, const std::string& value) {
    lua_pushlstring(_lua, value.data(), value.size());
    lua_setglobal(_lua, name);
}

void lua_state::set_global(const char* name, long long value) {
    lua_pushinteger(_lua, static_cast<lua_Integer>(value));
    lua_setglobal(_lua, name);
}

void lua_state::set_function(const std::string& name, lua_CFunction fn) {
    assert(fn);
    lua_pushcfunction(_lua, fn);
    lua_setglobal(_lua, name.c_str());
}

void lua_state::set_function(const std::string& name, string_function fn) {
    assert(fn);
    lua_pushlightuserdata(_lua, reinterpret_cast<void*>(fn));
    lua_pushcclosure(_lua, string_function_adapter, 1);
    lua_setglobal(_lua, name.c_str());
}

bool lua_state::is_type(const std::string& name, int lua_type_wanted) const {
    const detail::stack_guard guard(_lua);
    push_variable(_lua, _env, name.c_str());
    return lua_type(_lua, -1) == lua_type_wanted;
}

void lua_state::check_function(const std::string& name) const {
    if (!is_function(name)) {
        // Kept: the wording, which goes to the log and the journal.
        throw lua_exception("lua_state dosn't has the function: " + name);
    }
}

caller::caller(lua_state& state, const char* function) : _state(state) {
    lua_State* lua = state.get_lua();
    const int height = lua_gettop(lua);
    push_variable(lua, state.get_env(), function);
    if (state.get_env() == global_env) {
        return;
    }
    // Kept: the third entry from the top goes, not the table under the function. The table goes
    // only when nothing is below it.
    lua_remove(lua, height > 0 ? -3 : -2);
}

void caller::push_number(unsigned int value) {
    lua_pushnumber(_state.get_lua(), value);
}

void caller::push_number(long value) {
    lua_pushnumber(_state.get_lua(), static_cast<lua_Number>(value));
}

void caller::protected_call(int nargs) {
    lua_State* lua = _state.get_lua();
    if (lua_pcall(lua, nargs, 1, 0) == 0) {
        return;
    }
    std::string message = lua_tostring_impl(lua, "unknown error");
    // Kept: as many entries go as there were arguments; the error object is not counted.
    lua_settop(lua, std::max(0, lua_gettop(lua) - nargs));
    throw lua_exception(message);
}

template <>
bool caller::call_impl<bool>(int nargs) {
    protected_call(nargs);
    lua_State* lua = _state.get_lua();
    require_result(lua, LUA_TBOOLEAN, "lua: bad return type, must be boolean");
    const bool value = lua_toboolean(lua, -1) != 0;
    lua_pop(lua, 1);
    return value;
}

template <>
unsigned int caller::call_impl<unsigned int>(int nargs) {
    protected_call(nargs);
    return pop_number<unsigned int>(_state.get_lua());
}

template <>
long caller::call_impl<long>(int nargs) {
    protected_call(nargs);
    return pop_number<long>(_state.get_lua());
}

template <>
std::string caller::call_impl<std::string>(int nargs) {
    protected_call(nargs);
    lua_State* lua = _state.get_lua();
    require_result(lua, LUA_TSTRING, "lua: bad return type, must be string");
    std::string value = lua_tostring_impl(lua, {});
    lua_pop(lua, 1);
    return value;
}

template <>
std::vector<unsigned int> caller::call_impl<std::vector<unsigned int>>(int nargs) {
    protected_call(nargs);
    return pop_array<unsigned int>(_state.get_lua());
}

template <>
std::vector<long> caller::call_impl<std::vector<long>>(int nargs) {
    protected_call(nargs);
    return pop_array<long>(_state.get_lua());
}

template <>
lua_nil caller::call_impl<lua_nil>(int nargs) {
    protected_call(nargs);
    lua_pop(_state.get_lua(), 1);
    return {};
}

}  // namespace reporter::lua
