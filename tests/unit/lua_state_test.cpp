#include "lua/lua_state.h"

#include <cmath>
#include <limits>
#include <regex>

#include <gtest/gtest.h>

#include "support/error_of.h"
#include "support/platform_recorder.h"

using reporter::lua::lua_nil;
using reporter::lua::lua_state;
using test_support::platform_recorder;
using messages = std::vector<std::string>;

namespace {

template <class Call>
std::string error_of(Call call) {
    return test_support::error_of<reporter::lua_exception>(call);
}

// A state whose function f is given, with something of the owner's on the stack.
class lua_calls : public ::testing::Test {
protected:
    void SetUp() override { lua_pushliteral(state.get_lua(), "the owner's"); }
    void TearDown() override {
        EXPECT_EQ(lua_gettop(state.get_lua()), 1);
        EXPECT_STREQ(lua_tostring(state.get_lua(), 1), "the owner's");
    }

    template <class R>
    R result_of(const std::string& body) {
        state.run_script("function f(...) " + body + " end");
        return state.call<R>("f");
    }

    platform_recorder recorder;
    lua_state state;
};

std::string twice(const char* data, unsigned int size) {
    return std::string(data, size) + std::string(data, size);
}

std::string failing(const char*, unsigned int) {
    throw std::runtime_error("no C++ exception in Lua");
}

}  // namespace

TEST_F(lua_calls, convert_results) {
    EXPECT_TRUE(result_of<bool>("return true"));
    EXPECT_EQ(result_of<std::string>("return 'a\\0b'"), std::string("a\0b", 3));
    EXPECT_EQ(result_of<std::vector<long>>("return {-1, 2.9, '3'}"), (std::vector<long>{-1, 2, 3}));
    EXPECT_EQ(result_of<std::vector<unsigned int>>("return {4294967295, 0}"),
              (std::vector<unsigned int>{4294967295U, 0}));
    EXPECT_TRUE(result_of<std::vector<long>>("return {}").empty());
    result_of<lua_nil>("return {}, 2");
    const struct {
        const char* result;
        long as_long;
        unsigned int as_unsigned;
    } numbers[] = {
        {"3.99", 3, 3},
        {"-3.99", -3, 0},
        {"2147483647", 2147483647, 2147483647},
        {"0/0", 0, 0},
        {"1e300", std::numeric_limits<long>::max(), 4294967295U},
        {"-math.huge", std::numeric_limits<long>::min(), 0},
    };
    for (const auto& number : numbers) {
        const std::string body = std::string("return ") + number.result;
        EXPECT_EQ(result_of<long>(body), number.as_long) << number.result;
        EXPECT_EQ(result_of<unsigned int>(body), number.as_unsigned) << number.result;
    }
}

TEST_F(lua_calls, refuse_results_of_another_type) {
    const std::string lead = "lua: bad return type, must be ";
    for (const std::string body : {"", "return nil", "return {}", "return '1'", "return true"}) {
        const auto expect = [&](const char* accepted, const char* type, const std::string& error) {
            EXPECT_EQ(error, body == accepted ? "nothing thrown" : lead + type) << body;
        };
        expect("return true", "boolean", error_of([&] { result_of<bool>(body); }));
        expect("return '1'", "string", error_of([&] { result_of<std::string>(body); }));
        expect("-", "number", error_of([&] { result_of<unsigned int>(body); }));
        expect("-", "number", error_of([&] { result_of<long>(body); }));
        expect("return {}", "table( array )",
               error_of([&] { result_of<std::vector<long>>(body); }));
        expect("return {}", "table( array )",
               error_of([&] { result_of<std::vector<unsigned int>>(body); }));
    }
}

TEST_F(lua_calls, pass_numbers_in_order) {
    state.run_script("function f(...) return table.concat({select('#', ...), ...}, ' ') end");
    EXPECT_EQ(state.call<std::string>("f", 4294967295U, -1L, 2147483647L),
              "3 4294967295 -1 2147483647");
}

TEST_F(lua_calls, that_fail_leave_the_state_usable) {
    state.run_script("function f(n) if n then error({}) end error('boom', 0) end");
    EXPECT_EQ(error_of([&] { state.call<bool>("f"); }), "boom");
    EXPECT_EQ(error_of([&] { state.call<bool>("f", 1U); }), "unknown error");
    EXPECT_EQ(error_of([&] { state.call<bool>("absent", 1U); }),
              "lua_state dosn't has the function: absent");
    EXPECT_EQ(recorder.pauses(), 0U);
    EXPECT_EQ(recorder.messages().back(), "E can't call 'absent'");
    EXPECT_TRUE(result_of<bool>("return true"));
}

TEST_F(lua_calls, collect_log_and_pause_each_time) {
    state.run_script("function f() return 1 end");
    recorder.clear();
    state.call<long>("f");
    messages log = recorder.messages();
    for (std::string& line : log) {
        line = std::regex_replace(line, std::regex("(gc: |duration: )\\d+"), "$1N");
    }
    EXPECT_EQ(log,
              (messages{"I lua stack size before calling: f 1", "I lua stack size after calling: 1",
                        "I memory used before gc: N", "I lua_gc run full: 0", "I gc duration: Nms",
                        "I memory used after gc: N", "I slow down"}));
    EXPECT_EQ(recorder.pauses(), 1U);
    EXPECT_EQ(recorder.paused(), std::chrono::milliseconds(150));
}

TEST_F(lua_calls, into_string_natives_work_on_the_last_argument) {
    state.set_function("native", twice);
    state.set_function("failing", failing);
    recorder.clear();
    EXPECT_EQ(result_of<std::string>("return native('ignored', 'a\\0')"), std::string("a\0a\0", 4));
    EXPECT_EQ(recorder.count("I calling C function from lua, input size: 2"), 1U);
    EXPECT_EQ(recorder.count("I calling C function from lua, outpit size: 4"), 1U);
    EXPECT_EQ(result_of<std::string>("return native(12) .. native() .. native({})"), "1212");
    EXPECT_EQ(result_of<std::string>("return tostring(pcall(failing, 'x'))"), "false");
}

TEST(lua_state, runs_scripts_in_its_environment) {
    platform_recorder recorder;
    lua_state state;
    state.set_global("name", "outside");
    lua_newtable(state.get_lua());
    state.set_env("env");
    state.run_script("function f() return name end  name = 'inside'  n = 1");
    EXPECT_TRUE(state.is_function("f") && state.is_string("name") && state.is_number("n"));
    EXPECT_FALSE(state.is_function("print"));
    EXPECT_EQ(state.call<std::string>("f"), "inside");
    state.check_function("f");
    EXPECT_EQ(error_of([&] { state.check_function("print"); }),
              "lua_state dosn't has the function: print");
    // With nothing below it, exactly the function is pushed.
    const reporter::lua::caller pushed(state, "f");
    EXPECT_EQ(lua_gettop(state.get_lua()), 1);
    EXPECT_TRUE(lua_isfunction(state.get_lua(), 1));
}

TEST(lua_state, tells_why_a_script_does_not_run) {
    platform_recorder recorder;
    lua_state state;
    const std::string place = "[string \"setfenv( 1, _G )...\"]:2: ";
    const std::pair<const char*, std::string> scripts[] = {
        {"error('boom')", place + "boom"},
        {"error({})", "unknown error"},
        {"x =", place + "unexpected symbol near '<eof>'"}};
    for (const auto& [script, message] : scripts) {
        EXPECT_EQ(error_of([&, text = script] { state.run_script(text); }),
                  "can't run script, error: " + message);
        EXPECT_EQ(recorder.messages().back(), "E cant't run script: " + message);
        EXPECT_EQ(lua_gettop(state.get_lua()), 0);
    }
    state.run_script("return 1, 2, 3");
    EXPECT_EQ(lua_gettop(state.get_lua()), 0);
    lua_pushnil(state.get_lua());
    state.set_env("missing");
    state.run_script("");
    EXPECT_NE(error_of([&] { state.run_script("x = 1"); }), "nothing thrown");
}

TEST(lua_state, is_handed_over_and_closed_once) {
    platform_recorder recorder;
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
