#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include <lua.hpp>

#include "logging.h"
#include "pause.h"

namespace reporter {

/// A script, or a call into one, failed; what() is the interpreter's message.
class lua_exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace reporter

namespace reporter::lua {

/// Result type of a call whose result is ignored.
struct lua_nil {};

/// String form of the value on the top of the stack, or `fallback` when it has none.
std::string lua_tostring_impl(lua_State* lua, const std::string& fallback);

/// Owns one Lua interpreter with all standard libraries, and the name of the global table in which
/// scripts run and functions are looked up ("_G" at first). Confined to one thread at a time; the
/// owner serialises access. Usable after a failed script or call.
class lua_state {
public:
    using string_function = std::string (*)(const char* data, unsigned int size);

    /// Throws lua_exception when no interpreter can be made.
    lua_state();
    lua_state(const lua_state&) = delete;
    lua_state& operator=(const lua_state&) = delete;
    lua_state(lua_state&& other) noexcept;
    /// Only into a moved-from state: an interpreter that the target holds is not closed.
    lua_state& operator=(lua_state&& other) noexcept;
    ~lua_state();

    lua_State* get_lua() { return _lua; }
    /// Memory in use by the interpreter, in KiB.
    int get_used_memory();
    void run_full_gc();

    /// Runs the text with the environment table as its globals; an empty text runs nothing. Throws
    /// lua_exception.
    void run_script(const std::string& text);

    const std::string& get_env() const { return _env; }
    /// Pops the top value into the global `name`, which is the environment from then on.
    void set_env(const std::string& name);

    /// Pops the top value into the global `name`.
    void set_global(const char* name);
    void set_global(const char* name, const std::string& value);
    /// Narrowed to the interpreter's integer type.
    void set_global(const char* name, long long value);

    void set_function(const std::string& name, lua_CFunction fn);
    /// A native that takes the bytes of its last argument and returns bytes. An exception
    /// becomes a Lua error.
    void set_function(const std::string& name, string_function fn);

    /// Whether the environment's variable has that Lua type (LUA_TNUMBER and so on).
    bool is_type(const std::string& name, int lua_type_wanted) const;
    bool is_number(const std::string& name) const { return is_type(name, LUA_TNUMBER); }
    bool is_string(const std::string& name) const { return is_type(name, LUA_TSTRING); }
    bool is_function(const std::string& name) const { return is_type(name, LUA_TFUNCTION); }
    /// Throws lua_exception unless the environment has a function of that name.
    void check_function(const std::string& name) const;

    /// One complete call of a script function: logged, followed by a full collection and the
    /// throttle pause. R is one of the types that caller::call_impl offers; arguments are numbers
    /// or records with export_to_lua. Throws lua_exception; the stack is as before then.
    template <class R, class... Args>
    R call(const char* function, const Args&... args);

private:
    lua_State* _lua;
    std::string _env = "_G";
};

/// Pushes one function of a state and calls it. Lives for one call.
class caller {
public:
    /// Pushes the environment's function.
    caller(lua_state& state, const char* function);

    void push_number(unsigned int value);
    void push_number(long value);

    /// Calls with the `nargs` values pushed since, reads the one result and pops it. T is bool,
    /// unsigned int, long, std::string, std::vector<unsigned int>, std::vector<long> or lua_nil.
    /// Throws lua_exception when the call fails or the result has another type.
    template <class T>
    T call_impl(int nargs);

private:
    void protected_call(int nargs);

    lua_state& _state;
};

template <>
bool caller::call_impl<bool>(int nargs);
template <>
unsigned int caller::call_impl<unsigned int>(int nargs);
template <>
long caller::call_impl<long>(int nargs);
template <>
std::string caller::call_impl<std::string>(int nargs);
template <>
std::vector<unsigned int> caller::call_impl<std::vector<unsigned int>>(int nargs);
template <>
std::vector<long> caller::call_impl<std::vector<long>>(int nargs);
template <>
lua_nil caller::call_impl<lua_nil>(int nargs);

namespace detail {

inline void push_argument(lua_state&, caller& function, unsigned int value) {
    function.push_number(value);
}

inline void push_argument(lua_state&, caller& function, long value) {
    function.push_number(value);
}

template <class Record>
auto push_argument(lua_state& state, caller&, const Record& record)
    -> decltype(record.export_to_lua(state)) {
    return record.export_to_lua(state);
}

/// Puts a Lua stack back to the height it had, whatever way its scope is left.
class stack_guard {
public:
    explicit stack_guard(lua_State* lua) : _lua(lua), _height(lua_gettop(lua)) {}
    stack_guard(const stack_guard&) = delete;
    stack_guard& operator=(const stack_guard&) = delete;
    ~stack_guard() { lua_settop(_lua, _height); }

private:
    lua_State* _lua;
    int _height;
};

}  // namespace detail

template <class R, class... Args>
R lua_state::call(const char* function, const Args&... args) {
    using clock = std::chrono::system_clock;
    const detail::stack_guard guard(_lua);
    REPORTER_INFO("lua stack size before calling: " << function << " " << lua_gettop(_lua));
    try {
        check_function(function);
        caller target(*this, function);
        (detail::push_argument(*this, target, args), ...);
        R result = target.call_impl<R>(static_cast<int>(sizeof...(args)));
        REPORTER_INFO("lua stack size after calling: " << lua_gettop(_lua));
        REPORTER_INFO("memory used before gc: " << get_used_memory());
        const auto begin = clock::now();
        run_full_gc();
        const std::chrono::nanoseconds spent = clock::now() - begin;
        REPORTER_INFO("gc duration: " << spent.count() / 1'000'000 << "ms");
        REPORTER_INFO("memory used after gc: " << get_used_memory());
        REPORTER_INFO("slow down");
        slow_down_pause();
        return result;
    } catch (const std::exception&) {
        REPORTER_ERROR("can't call '" << function << "'");
        throw;
    }
}

}  // namespace reporter::lua
