#include "lua/lua_state.h"

#include <limits>

#include "lua/table_creator.h"
#include "support/device_root.h"
#include "support/error_of.h"

using namespace test_support;
using namespace reporter::lua;
using reporter::lua_exception;

// Calls into a state whose owner has left something on the stack.
class lua_calls : public device_test {
protected:
    lua_calls() {
        lua_state moved(std::move(state));
        state = std::move(moved);
        lua_pushliteral(state.get_lua(), "the owner's");
    }
    void TearDown() override {
        EXPECT_EQ(lua_gettop(state.get_lua()), 1);
        EXPECT_STREQ(lua_tostring(state.get_lua(), 1), "the owner's");
    }

    template <class R, class... Args>
    R run(const std::string& body, const Args&... args) {
        state.run_script("function f(...) " + body + " end");
        return state.call<R>("f", args...);
    }

    lua_state state;
};

TEST_F(lua_calls, convert_results_or_refuse_their_type) {
    EXPECT_EQ(run<std::vector<long>>("return {-1, 2.9, '3'}"), (std::vector<long>{-1, 2, 3}));
    EXPECT_EQ(run<std::vector<unsigned int>>("return {4294967295, 0}"),
              (std::vector<unsigned int>{4294967295U, 0}));
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
    EXPECT_EQ(error_of<lua_exception>([&] { run<bool>("return 1"); }),
              "lua: bad return type, must be boolean");
    EXPECT_EQ(error_of<lua_exception>([&] { run<long>("return '1'"); }),
              "lua: bad return type, must be number");
}

TEST_F(lua_calls, take_numbers_and_bytes) {
    EXPECT_EQ(run<std::string>("return table.concat({...}, ' ')", 4294967295U, -1L),
              "4294967295 -1");
    table_creator(state).set_field("bytes", std::vector<unsigned char>{0, 255});
    state.set_global("made");
    EXPECT_EQ(run<std::string>("return table.concat(made.bytes, ',')"), "0,255");
}

TEST_F(lua_calls, that_fail_leave_the_state_usable) {
    EXPECT_EQ(error_of<lua_exception>([&] { run<bool>("error({})", 1U); }), "unknown error");
    EXPECT_THROW(state.call<bool>("absent"), lua_exception);
    EXPECT_EQ(recorder.messages().back(), "E can't call 'absent'");
    EXPECT_EQ(error_of<lua_exception>([&] { state.run_script("error('boom')"); }),
              "can't run script, error: [string \"setfenv( 1, _G )...\"]:2: boom");
    EXPECT_THROW(state.run_script("x ="), lua_exception);
    EXPECT_THROW(state.run_script("error({})"), lua_exception);
    EXPECT_EQ(recorder.messages().back(), "E cant't run script: unknown error");
    EXPECT_TRUE(recorder.pauses().empty());
    state.run_script("return 1, 2, 3");
}

TEST_F(lua_calls, collect_and_pause_each_time) {
    run<bool>("string.rep('x', 1e6) return true");
    EXPECT_LT(state.get_used_memory(), 500);
    EXPECT_EQ(recorder.pauses(),
              std::vector<std::chrono::nanoseconds>{std::chrono::milliseconds(150)});
}

TEST_F(lua_calls, into_string_natives_work_on_the_last_argument) {
    state.set_function("dot", [](const char* data, unsigned int size) -> std::string {
        return size > 3 ? throw std::bad_alloc() : std::string(data, size) + '.';
    });
    EXPECT_EQ(run<std::string>("return dot('ignored', 'a\\0')"), std::string("a\0.", 3));
    EXPECT_EQ(run<std::string>("return dot(12) .. dot() .. dot({})"), "12...");
    EXPECT_EQ(run<std::string>("return tostring(pcall(dot, 'long'))"), "false");
}

TEST(lua_states, run_scripts_in_their_environment) {
    lua_state state;
    state.set_global("name", "outside");
    lua_newtable(state.get_lua());
    state.set_env("env");
    state.run_script("function f() return name end name = 'inside'");
    EXPECT_EQ(state.call<std::string>("f"), "inside");
    EXPECT_THROW(state.check_function("print"), lua_exception);
    lua_pushnil(state.get_lua());
    state.set_env("missing");
    EXPECT_THROW(state.run_script("x = 1"), lua_exception);
    EXPECT_THROW(state.call<bool>("f"), lua_exception);
}
