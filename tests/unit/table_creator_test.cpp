#include "lua/table_creator.h"

#include "support/device_root.h"

using namespace test_support;
using reporter::lua::table_creator;

class tables : public device_test {
protected:
    // f gives the keys of a table in order, each with type and value.
    tables() {
        state.run_script(R"(function f(t)
            local lines = {}
            for key, value in pairs(t) do
                local text = type(value) == 'table' and table.concat(value, ',') or value
                lines[#lines + 1] = key .. '=' .. type(value) .. ':' .. text
            end
            table.sort(lines)
            return table.concat(lines, ' ')
        end)");
    }

    reporter::lua::lua_state state;
};

TEST_F(tables, hold_each_field_of_a_record) {
    const std::string all_ones = sizeof(lua_Integer) > 4 ? "4294967295" : "-1";
    const std::pair<reporter::report, std::string> records[] = {
        {{-1, -32768, {'a', 0, 0xFF, 0}, 4294967295U},
         "aggregationid=number:" + all_ones + " content=string:" + std::string("a\0\xFF\0", 4) +
             " module=number:-1 size=number:4 type=number:-32768"},
        {{32767, 0, {}, 0},
         "aggregationid=number:0 content=string: module=number:32767 size=number:0 type=number:0"}};
    for (const auto& [record, text] : records) {
        EXPECT_EQ(state.call<std::string>("f", reporter::lua::report_table(record)), text);
    }
    const reporter::ext_aggregation_data query{std::string("c\0", 2), ""};
    EXPECT_EQ(state.call<std::string>("f", reporter::lua::ext_table(query)),
              std::string("caller=string:c\0 filehash=string:", 33));
}

TEST_F(tables, are_filled_from_bytes_and_globals) {
    state.set_global("set", -5LL);
    table_creator(state)
        .set_field("bytes", std::vector<unsigned char>{0, 255})
        .set_from_global_value("unset", "no_such_global")
        .set_from_global_value("copied", "set");
    state.set_global("t");
    state.run_script("function g() return f(t) end");
    EXPECT_EQ(state.call<std::string>("g"), "bytes=table:0,255 copied=number:-5");
}

TEST_F(tables, stop_the_program_when_they_are_not_on_the_top) {
    table_creator table(state);
    lua_pushnil(state.get_lua());
    EXPECT_DEATH(table.set_field("a", 1LL), "LUA_TTABLE == lua_type\\( _L, -1 \\)");
}
