#include "lua/table_creator.h"

#include <cassert>

namespace reporter::lua {
namespace {

void push_string(lua_State* lua, const std::string& text) {
    lua_pushlstring(lua, text.data(), text.size());
}

}  // namespace

table_creator::table_creator(lua_state& state) : _L(state.get_lua()) {
    lua_createtable(_L, 0, 0);
}

table_creator& table_creator::set_field(const std::string& name, const std::string& value) {
    check_table();
    push_key(name);
    push_string(_L, value);
    lua_settable(_L, -3);
    return *this;
}

table_creator& table_creator::set_field(const std::string& name, long long value) {
    check_table();
    push_key(name);
    lua_pushinteger(_L, static_cast<lua_Integer>(value));
    lua_settable(_L, -3);
    return *this;
}

table_creator& table_creator::set_field(const std::string& name,
                                        const std::vector<unsigned char>& bytes) {
    push_key(name);
    lua_createtable(_L, static_cast<int>(bytes.size()), 0);
    int position = 0;
    for (const unsigned char byte : bytes) {
        lua_pushinteger(_L, byte);
        lua_rawseti(_L, -2, ++position);
    }
    lua_settable(_L, -3);
    return *this;
}

table_creator& table_creator::set_field_as_string(const std::string& name,
                                                  const std::vector<unsigned char>& bytes) {
    check_table();
    push_key(name);
    lua_pushlstring(_L, reinterpret_cast<const char*>(bytes.data()), bytes.size());
    lua_settable(_L, -3);
    return *this;
}

table_creator& table_creator::set_from_global_value(const std::string& name, const char* global) {
    check_table();
    push_key(name);
    lua_getglobal(_L, global);
    lua_settable(_L, -3);
    return *this;
}

void table_creator::check_table() const {
    // Kept: the blanks, which the assertion prints.
    // clang-format off
    assert(LUA_TTABLE == lua_type( _L, -1 ));
    // clang-format on
}

void table_creator::push_key(const std::string& name) {
    push_string(_L, name);
}

table_creator create_report_table(lua_state& state, const report& record) {
    table_creator table(state);
    table.set_field("module", record.module)
        .set_field("type", record.type)
        .set_field("size", static_cast<long long>(record.content.size()))
        .set_field("aggregationid", static_cast<long long>(record.aggregationid))
        .set_field_as_string("content", record.content);
    return table;
}

table_creator create_ext_table(lua_state& state, const ext_aggregation_data& record) {
    table_creator table(state);
    table.set_field("caller", record.caller).set_field("filehash", record.filehash);
    return table;
}

}  // namespace reporter::lua
