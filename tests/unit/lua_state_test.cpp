#include "lua/lua_state.h"

#include <limits>
#include <regex>

#include "support/device_root.h"
#include "support/error_of.h"

using namespace test_support;
using reporter::lua_exception;
using reporter::lua::lua_state;

namespace {

std::string twice(const char* data, unsigned int size) {
    return std::string(data, size) + std::string(data, size);
}

std::string failing(const char*, unsigned int) {
    throw std::runtime_error("not for the interpreter");
}

}  // namespace

// Calls into a state that has something of its owner's on the stack.
class lua_calls : public device_test {
protected:
    void SetUp() override { lua_pushliteral(state.get_lua(), "the owner's"); }
    void TearDown() override {
        EXPECT_EQ(lua_gettop(state.get_lua()), 1);
        EXPECT_STREQ(lua_tostring(state.get_lua(), 1), "the owner's");
    }

    template <class R>
    R run(const std::string& body) {
        state.run_script("function f(...) " + body + " end");
        return state.call<R>("f");
    }

    lua_state state;
};

TEST_F(lua_calls, convert_results) {
    EXPECT_TRUE(run<bool>("return true"));
    EXPECT_EQ(run<std::string>("return 'a\\0b'"), std::string("a\0b", 3));
    EXPECT_EQ(run<std::vector<long>>("return {-1, 2.9, '3'}"), (std::vector<long>{-1, 2, 3}));
    EXPECT_EQ(run<std::vector<unsigned int>>("return {4294967295, 0}"),
              (std::vector<unsigned int>{4294967295U, 0}));
    run<reporter::lua::lua_nil>("return {}, 2");
    using limits = std::numeric_limits<long>;
    const std::tuple<const char*, long, unsigned int> numbers[] = {
        {"return 3.99", 3, 3},
        {"return -3.99", -3, 0},
        {"return 2147483647", 2147483647, 2147483647},
        {"return 0/0", 0, 0},
        {"return 1e300", limits::max(), 4294967295U},
        {"return -math.huge", limits::min(), 0}};
    for (const auto& [body, as_long, as_unsigned] : numbers) {
        EXPECT_EQ(run<long>(body), as_long) << body;
        EXPECT_EQ(run<unsigned int>(body), as_unsigned) << body;
    }
}

TEST_F(lua_calls, refuse_results_of_another_type) {
    using numbers = std::vector<unsigned int>;
    const std::string none = "nothing thrown";
    const std::string lead = "lua: bad return type, must be ";
    for (const std::string body : {"", "return nil", "return {}", "return '1'", "return true"}) {
        EXPECT_EQ(error_of<lua_exception>([&] { run<bool>(body); }),
                  body == "return true" ? none : lead + "boolean");
        EXPECT_EQ(error_of<lua_exception>([&] { run<std::string>(body); }),
                  body == "return '1'" ? none : lead + "string");
        EXPECT_EQ(error_of<lua_exception>([&] { run<numbers>(body); }),
                  body == "return {}" ? none : lead + "table( array )");
        EXPECT_EQ(error_of<lua_exception>([&] { run<long>(body); }), lead + "number");
    }
}

TEST_F(lua_calls, pass_numbers_in_order) {
    state.run_script("function f(...) return table.concat({select('#', ...), ...}, ' ') end");
    EXPECT_EQ(state.call<std::string>("f", 4294967295U, -1L, 2147483647L),
              "3 4294967295 -1 2147483647");
}

TEST_F(lua_calls, that_fail_leave_the_state_usable) {
    state.run_script("function f(n) if n then error({}) end error('boom', 0) end");
    EXPECT_EQ(error_of<lua_exception>([&] { state.call<bool>("f"); }), "boom");
    EXPECT_EQ(error_of<lua_exception>([&] { state.call<bool>("f", 1U); }), "unknown error");
    EXPECT_EQ(error_of<lua_exception>([&] { state.call<bool>("absent"); }),
              "lua_state dosn't has the function: absent");
    EXPECT_EQ(recorder.messages().back(), "E can't call 'absent'");
    EXPECT_TRUE(recorder.pauses().empty());
    EXPECT_TRUE(run<bool>("return true"));
}

TEST_F(lua_calls, collect_log_and_pause_each_time) {
    run<bool>("return true");
    messages log = recorder.messages();
    for (std::string& line : log) {
        line = std::regex_replace(line, std::regex("(gc: |duration: )\\d+"), "$1N");
    }
    EXPECT_EQ(log,
              (messages{"I lua stack size before calling: f 1", "I lua stack size after calling: 1",
                        "I memory used before gc: N", "I lua_gc run full: 0", "I gc duration: Nms",
                        "I memory used after gc: N", "I slow down"}));
    EXPECT_EQ(recorder.pauses(),
              (std::vector<std::chrono::nanoseconds>{std::chrono::milliseconds(150)}));
}

TEST_F(lua_calls, into_string_natives_work_on_the_last_argument) {
    state.set_function("twice", twice);
    state.set_function("failing", failing);
    EXPECT_EQ(run<std::string>("return twice('ignored', 'a\\0')"), std::string("a\0a\0", 4));
    EXPECT_EQ(recorder.count("I calling C function from lua, input size: 2"), 1U);
    EXPECT_EQ(recorder.count("I calling C function from lua, outpit size: 4"), 1U);
    EXPECT_EQ(run<std::string>("return twice(12) .. twice() .. twice({})"), "1212");
    EXPECT_EQ(run<std::string>("return tostring(pcall(failing, 'x'))"), "false");
}

class lua_states : public device_test {
protected:
    lua_state state;
};

TEST_F(lua_states, run_scripts_in_their_environment) {
    state.set_global("name", "outside");
    lua_newtable(state.get_lua());
    state.set_env("env");
    state.run_script("function f() return name end  name = 'inside'  n = 1");
    EXPECT_TRUE(state.is_function("f") && state.is_string("name") && state.is_number("n"));
    EXPECT_EQ(state.call<std::string>("f"), "inside");
    EXPECT_EQ(error_of<lua_exception>([&] { state.check_function("print"); }),
              "lua_state dosn't has the function: print");
    // With nothing below it, exactly the function is pushed.
    const reporter::lua::caller pushed(state, "f");
    EXPECT_EQ(lua_gettop(state.get_lua()), 1);
    EXPECT_TRUE(lua_isfunction(state.get_lua(), 1));
}

TEST_F(lua_states, tell_why_a_script_does_not_run) {
    const std::string place = "[string \"setfenv( 1, _G )...\"]:2: ";
    const std::pair<const char*, std::string> scripts[] = {
        {"error('boom')", place + "boom"},
        {"error({})", "unknown error"},
        {"x =", place + "unexpected symbol near '<eof>'"}};
    for (const auto& [script, message] : scripts) {
        EXPECT_EQ(error_of<lua_exception>([&, text = script] { state.run_script(text); }),
                  "can't run script, error: " + message);
        EXPECT_EQ(recorder.messages().back(), "E cant't run script: " + message);
    }
    state.run_script("return 1, 2, 3");
    EXPECT_EQ(lua_gettop(state.get_lua()), 0);
    lua_pushnil(state.get_lua());
    state.set_env("missing");
    state.run_script("");
    EXPECT_NE(error_of<lua_exception>([&] { state.run_script("x = 1"); }), "nothing thrown");
}

TEST_F(lua_states, are_handed_over_and_closed_once) {
    {
        lua_state first;
        lua_state second(std::move(first));
        first = std::move(second);
        EXPECT_EQ(second.get_lua(), nullptr);
        first.run_script("x = 1");
    }
    EXPECT_EQ(recorder.messages(),
              (messages{"I lua_state &&", "I operator=( lua_state && )", "I calling lua_close"}));
}
