#include "lua_sandbox.h"

#include <iterator>
#include <set>
#include <sstream>

#include "support/device_root.h"

using namespace test_support;
using reporter::lua_sandbox;

class sandbox : public device_test {
protected:
    const reporter::config_helper settings{
        reporter::parse_config(R"({"processor": {"dispatching_time": "0"}})"), {}};
};

TEST_F(sandbox, shows_a_script_exactly_the_list) {
    install_plugin();
    lua_sandbox box(settings, "function probe() end");
    lua_State* lua = box.get().get_lua();
    lua_getglobal(lua, "env");
    lua_getfield(lua, 1, "probe");
    lua_getfenv(lua, 2);
    EXPECT_TRUE(lua_rawequal(lua, 1, 3)) << "the script's functions see another table";
    EXPECT_FALSE(lua_getmetatable(lua, 1)) << "the table leads to another one";
    std::set<std::string> names;
    for (lua_pushnil(lua); lua_next(lua, 1) != 0; lua_pop(lua, 1)) {
        names.insert(lua_tostring(lua, -2));
    }
    std::istringstream list(
        "coroutine os next type math print table pairs pcall error select string unpack xpcall "
        "tostring tonumber collectgarbage sqlite3 json CONFIG PATH_TO_DB DB_MAX_SIZE "
        "DISPATCHING_TIME REPORTER_DATA_DIR REPORTER_MODULE_ID get_db_size remove_db_file "
        "get_timestamp LOG WARN TRACE ERROR sha256 deflate inflate base64_decode base64_encode "
        "DTV_TYPE PRODUCT_TYPE DUID TIZEN_VERSION PLATFORM_NAME SW_VERSION SW_VERSION_MODEL VENDOR "
        "MANUFACTURER SUPPORT probe");
    EXPECT_EQ(names, (std::set<std::string>(std::istream_iterator<std::string>(list), {})));
}

TEST_F(sandbox, gives_a_script_its_settings_and_natives) {
    set_system_info("value", "40066", true);
    write_text(data_dir() / "db_reports", "12345");
    lua_sandbox box(settings, "", "");
    const std::pair<std::string, std::string> cases[] = {
        {"type(REPORTER_MODULE_ID) .. REPORTER_MODULE_ID", "number1010"},
        {"DUID .. SUPPORT .. LFD_BLOCK_BASIC_TRAFFIC_SUPPORT", "EMPTYDUID11"},
        {"get_db_size()", "5"},
        {"remove_db_file()", "nil"},
        {"get_db_size()", "-1"},
        {"os.time() - get_timestamp() <= 0", "true"},
        {"TRACE(5) or LOG() or LOG({})", "nil"},
        {"inflate(deflate('a\\0b')) == base64_decode(base64_encode('a\\0b'))", "true"},
    };
    for (const auto& [expression, text] : cases) {
        box.get().run_script("function probe() return tostring((" + expression + ")) end");
        EXPECT_EQ(box.get().call<std::string>("probe"), text) << expression;
    }
    EXPECT_EQ(recorder.count("I LUA: 5"), 1U);
    EXPECT_EQ(recorder.count("I LUA: "), 2U);
}

TEST_F(sandbox, is_built_when_it_is_needed_and_again_after_a_failure_or_a_release) {
    const std::string later = data_dir() / "later.lua";
    lua_sandbox box(settings, "n = 0 function count() n = n + 1 return n end",
                    "assert(loadfile('" + later + "'))()");
    EXPECT_THROW(box.get(), reporter::lua_exception);
    write_text(later, "");
    EXPECT_EQ(box.get().call<long>("count"), 1);
    box.init();
    EXPECT_EQ(box.get().call<long>("count"), 2);
    box.release();
    EXPECT_EQ(box.get().call<long>("count"), 1);
}
