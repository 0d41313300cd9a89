#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include <lua.hpp>

#include "logging.h"
#include "pause.h"

namespace reporter {

/// A script, or a call into one, failed. what() is the interpreter's message, without a traceback.
class lua_exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace reporter

namespace reporter::lua {

/// Result type of a call whose result is ignored.
struct lua_nil {};

/// String form of the value on the top of the stack, any bytes; `fallback` when the stack is empty
/// or the value has no string form. Leaves the value there, a number as a string from then on.
std::string lua_tostring_impl(lua_State* lua, const std::string& fallback);

/// Owns one Lua interpreter with all standard libraries. Also keeps the name of its environment:
/// the global table in which scripts run and functions are looked up, "_G" at first. One thread at
/// a time; the owner serialises access. It stays usable after a script or a call has failed.
class lua_state {
public:
    /// A native from bytes to bytes. `data` is null when the script gives no string.
    using string_function = std::string (*)(const char* data, unsigned int size);

    /// Throws lua_exception when no interpreter can be made.
    lua_state();
    lua_state(const lua_state&) = delete;
    lua_state& operator=(const lua_state&) = delete;
    lua_state(lua_state&& other) noexcept;
    /// Only into a moved-from state: an interpreter that the target holds is not closed.
    lua_state& operator=(lua_state&& other) noexcept;
    ~lua_state();

    /// The interpreter, still owned by this object; null once moved from.
    lua_State* get_lua() { return _lua; }
    /// Memory in use by the interpreter, in KiB.
    int get_used_memory();
    /// Frees at once what the script does not hold any more.
    void run_full_gc();

    /// Runs the text with the environment table as its globals; an empty text runs nothing. Throws
    /// lua_exception. What the script set before it failed stays set; the stack is as before.
    void run_script(const std::string& text);

    /// Name of the environment.
    const std::string& get_env() const { return _env; }
    /// Pops the top value into the global `name`, which is the environment from then on.
    void set_env(const std::string& name);

    // These write the interpreter's global table, whatever the environment is. A value that stands
    // under the name is replaced.

    /// Pops the top value into the global `name`.
    void set_global(const char* name);
    /// The bytes as a Lua string.
    void set_global(const char* name, const std::string& value);
    /// Narrowed to the interpreter's integer type, which has 32 bits on the device.
    void set_global(const char* name, long long value);

    /// `fn` must not be null, and no C++ exception may leave it.
    void set_function(const std::string& name, lua_CFunction fn);
    /// A native that takes the bytes of its last argument and returns bytes. An exception out of it
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
    /// throttle pause of 150 ms. R is one of the types that caller::call_impl offers; arguments are
    /// numbers or records with export_to_lua. The stack has its old height on every way out. Throws
    /// lua_exception, without a collection or a pause.
    template <class R, class... Args>
    R call(const char* function, const Args&... args);

private:
    lua_State* _lua;
    std::string _env = "_G";
};

/// Pushes one function of a state and calls it. Lives for one call and must not outlive the state.
/// After a failure it leaves the stack to its user to put in order, as lua_state::call does.
class caller {
public:
    /// Pushes the environment's function, or nil when there is none.
    caller(lua_state& state, const char* function);

    /// One more argument, as Lua's floating point number: exact up to 2^53.
    void push_number(unsigned int value);
    void push_number(long value);

    /// Calls with the `nargs` values pushed since, reads the one result and pops it. T is bool,
    /// unsigned int, long, std::string, std::vector<unsigned int>, std::vector<long> or lua_nil.
    /// A number beyond T becomes T's nearest, NaN becomes 0. Elements come in the interpreter's
    /// order. Throws lua_exception when the call fails or the result has another type.
    template <class T>
    T call_impl(int nargs);

private:
    /// Leaves one result on the stack, or throws lua_exception.
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

// One argument of lua_state::call: a number as it is, a record by its export_to_lua.

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
