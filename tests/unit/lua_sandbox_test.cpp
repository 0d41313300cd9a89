#include "lua_sandbox.h"

#include <ctime>
#include <set>

#include "support/device_root.h"
#include "support/error_of.h"

using namespace test_support;
using reporter::lua_exception;
using reporter::lua_sandbox;

class sandbox : public device_test {
protected:
    // What the expression gives inside, as text.
    static std::string inside(lua_sandbox& box, const std::string& expression) {
        box.get().run_script("function probe() return tostring((" + expression + ")) end");
        return box.get().call<std::string>("probe");
    }

    const reporter::config_helper settings{
        reporter::parse_config(R"({"db_max_size": 4096, "processor": {"dispatching_time": "0"}})"),
        {}};
};

TEST_F(sandbox, shows_a_script_exactly_the_list) {
    install_plugin();
    lua_sandbox box(settings, "function probe() end");
    const std::set<std::string> expected{"coroutine",
                                         "os",
                                         "next",
                                         "type",
                                         "math",
                                         "print",
                                         "table",
                                         "pairs",
                                         "pcall",
                                         "error",
                                         "select",
                                         "string",
                                         "unpack",
                                         "xpcall",
                                         "tostring",
                                         "tonumber",
                                         "collectgarbage",
                                         "sqlite3",
                                         "json",
                                         "CONFIG",
                                         "PATH_TO_DB",
                                         "DB_MAX_SIZE",
                                         "DISPATCHING_TIME",
                                         "REPORTER_DATA_DIR",
                                         "REPORTER_MODULE_ID",
                                         "get_db_size",
                                         "remove_db_file",
                                         "get_timestamp",
                                         "LOG",
                                         "WARN",
                                         "TRACE",
                                         "ERROR",
                                         "sha256",
                                         "deflate",
                                         "inflate",
                                         "base64_decode",
                                         "base64_encode",
                                         "DTV_TYPE",
                                         "PRODUCT_TYPE",
                                         "DUID",
                                         "TIZEN_VERSION",
                                         "PLATFORM_NAME",
                                         "SW_VERSION",
                                         "SW_VERSION_MODEL",
                                         "VENDOR",
                                         "MANUFACTURER",
                                         "SUPPORT",
                                         "probe"};
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
    EXPECT_EQ(names, expected);
}

TEST_F(sandbox, gives_a_script_its_settings_and_natives) {
    set_system_info("value", "40066", true);
    write_text(data_dir() / "db_reports", "12345");
    lua_sandbox box(settings, "", "hidden = 1");
    const std::pair<std::string, std::string> cases[] = {
        {"CONFIG",
         "{\n   \"db_max_size\" : 4096,\n   \"processor\" : {\n"
         "      \"dispatching_time\" : \"0\"\n   }\n}\n"},
        {"PATH_TO_DB", data_dir().string() + "/db_reports"},
        {"type(DB_MAX_SIZE) .. DB_MAX_SIZE", "number4096"},
        {"type(DISPATCHING_TIME) .. DISPATCHING_TIME", "string0"},
        {"REPORTER_DATA_DIR", data_dir().string() + "/"},
        {"type(REPORTER_MODULE_ID) .. REPORTER_MODULE_ID", "number1010"},
        {"DUID .. SUPPORT .. LFD_BLOCK_BASIC_TRAFFIC_SUPPORT", "EMPTYDUID11"},
        {"hidden or sqlite3 or json or ipairs or require or io or setmetatable", "nil"},
        {"get_db_size()", "5"},
        {"remove_db_file()", "nil"},
        {"get_db_size()", "-1"},
        {"os.time() - get_timestamp() <= 0", "true"},
        {"inflate(deflate('a\\0b')) == base64_decode(base64_encode('a\\0b'))", "true"},
        {"sha256('abc')", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    };
    for (const auto& [expression, text] : cases) {
        EXPECT_EQ(inside(box, expression), text) << expression;
    }
}

TEST_F(sandbox, logs_for_a_script) {
    lua_sandbox(settings, "LOG('a') WARN('b') TRACE('c') ERROR('d') LOG(5) LOG({}) LOG()", "")
        .init();
    messages lines;
    for (const std::string& line : recorder.messages()) {
        if (line.compare(1, 6, " LUA: ") == 0) {
            lines.push_back(line);
        }
    }
    EXPECT_EQ(lines, (messages{"I LUA: a", "W LUA: b", "I LUA: c", "E LUA: d", "I LUA: 5",
                               "I LUA: ", "I LUA: "}));
}

TEST_F(sandbox, is_built_when_it_is_needed_and_again_after_a_release) {
    lua_sandbox made(settings, "n = 0 function count() n = n + 1 return n end", "");
    lua_sandbox box(std::move(made));
    EXPECT_EQ(recorder.count("I lua_sandbox::init"), 0U);
    EXPECT_EQ(box.get().call<long>("count"), 1);
    box.init();
    EXPECT_EQ(box.get().call<long>("count"), 2);
    box.release();
    EXPECT_EQ(box.get().call<long>("count"), 1);
    for (const char* line :
         {"lua_sandbox::init", "lua sandbox was created", "new sandbox was created"}) {
        EXPECT_EQ(recorder.count(std::string("I ") + line), 2U) << line;
    }
    EXPECT_EQ(recorder.count("I lua_sandbox::release "), 1U);
}

TEST_F(sandbox, tries_again_after_a_failure) {
    const std::string later = data_dir() / "later.lua";
    const std::string run_later = "assert(loadfile('" + later + "'))()";
    lua_sandbox fails_before(settings, "x = 'main'", run_later);
    lua_sandbox fails_inside(settings, "WARN('runs') x = unset.member", "");
    EXPECT_NE(error_of<lua_exception>([&] { fails_before.get(); }), "nothing thrown");
    write_text(later, "");
    EXPECT_EQ(inside(fails_before, "x"), "main");
    for (std::size_t tries = 1; tries <= 2; ++tries) {
        EXPECT_NE(error_of<lua_exception>([&] { fails_inside.get(); }), "nothing thrown");
        EXPECT_EQ(recorder.count("W LUA: runs"), tries);
    }
    lua_sandbox unset(settings.get_helper("absent"), "", "");
    EXPECT_EQ(error_of([&] { unset.get(); }), "key: dispatching_time is not string");
}

TEST_F(sandbox, looks_for_modules_in_the_data_directory) {
    const std::string dir = data_dir().string() + "/lib/lua/";
    EXPECT_EQ(reporter::get_default_pre_script(),
              "package.path = package.path .. \"?;" + dir + "?.lua\"\n" +
                  "package.cpath = package.cpath .. \"?;" + dir + "?.so\"\n" +
                  "require \"sqlite3\"\njson = require \"json\"\n");
}
