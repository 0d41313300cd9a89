#include "lua/table_creator.h"

#include <gtest/gtest.h>

#include "support/platform_recorder.h"

using reporter::report;
using reporter::lua::lua_state;
using reporter::lua::table_creator;

namespace {

// Keys in order, each with type and value, strings with their length.
constexpr const char* dump = R"(function f(t)
    local keys, text = {}, ''
    for key in pairs(t) do keys[#keys + 1] = key end
    table.sort(keys)
    for _, key in ipairs(keys) do
        local value = t[key]
        if type(value) == 'table' then value = '{' .. table.concat(value, ',') .. '}' end
        text = text .. key .. '=' .. type(t[key]) .. ':' .. value .. ' '
    end
    return text
end)";

class tables : public ::testing::Test {
protected:
    void SetUp() override { state.run_script(dump); }

    test_support::platform_recorder recorder;
    lua_state state;
};

}  // namespace

TEST_F(tables, hold_each_field_of_a_record) {
    const std::string all_ones = sizeof(lua_Integer) > 4 ? "4294967295" : "-1";
    const std::pair<report, std::string> records[] = {
        {{-1, -32768, {'a', 0, 0xFF, 0}, 4294967295U},
         "aggregationid=number:" + all_ones + " content=string:" + std::string("a\0\xFF\0", 4) +
             " module=number:-1 size=number:4 type=number:-32768 "},
        {{32767, 0, {}, 0},
         "aggregationid=number:0 content=string: module=number:32767 size=number:0 "
         "type=number:0 "}};
    for (const auto& [record, text] : records) {
        EXPECT_EQ(state.call<std::string>("f", reporter::lua::report_table(record)), text);
    }
    const reporter::ext_aggregation_data query{std::string("c\0", 2), ""};
    EXPECT_EQ(state.call<std::string>("f", reporter::lua::ext_table(query)),
              std::string("caller=string:c\0 filehash=string: ", 34));
}

TEST_F(tables, are_filled_from_bytes_and_globals) {
    state.set_global("set", -5LL);
    table_creator(state)
        .set_field("bytes", std::vector<unsigned char>{0, 255})
        .set_from_global_value("unset", "no_such_global")
        .set_from_global_value("copied", "set");
    state.set_global("t");
    state.run_script("function g() return f(t) end");
    EXPECT_EQ(state.call<std::string>("g"), "bytes=table:{0,255} copied=number:-5 ");
}

TEST_F(tables, stop_the_program_when_they_are_not_on_the_top) {
    table_creator table(state);
    lua_pushnil(state.get_lua());
    EXPECT_DEATH(table.set_field("a", 1LL), "LUA_TTABLE == lua_type\\( _L, -1 \\)");
}
