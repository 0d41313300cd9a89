#include "lua_sandbox.h"

#include <ctime>
#include <set>

#include "support/device_root.h"
#include "support/error_of.h"
#include "support/platform_recorder.h"
#include "sys_info.h"

using reporter::config_helper;
using reporter::lua_sandbox;
using test_support::data_dir;
using test_support::write_text;

namespace {

config_helper settings(const std::string& text) {
    return {reporter::parse_config(text), {}};
}

const char* const usual_settings =
    R"({"db_max_size": 4096, "processor": {"dispatching_time": "03:00"}, "own": {"key": 1}})";

class sandbox : public test_support::device_test {
protected:
    void SetUp() override {
        device_test::SetUp();
        test_support::install_plugin();
    }

    // What the expression gives inside, as text.
    static std::string inside(lua_sandbox& box, const std::string& expression) {
        box.get().run_script("function probe() return tostring(" + expression + ") end");
        return box.get().call<std::string>("probe");
    }

    test_support::platform_recorder recorder;
};

}  // namespace

TEST_F(sandbox, shows_a_script_exactly_the_list) {
    lua_sandbox box(settings(usual_settings), "function probe() end");
    std::set<std::string> expected{"coroutine",
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
    lua_getfield(lua, -1, "probe");
    lua_getfenv(lua, -1);
    EXPECT_TRUE(lua_rawequal(lua, -1, 1)) << "the script's functions see another table";
    EXPECT_FALSE(lua_getmetatable(lua, -1)) << "the table leads to another one";
    std::set<std::string> names;
    for (lua_pushnil(lua); lua_next(lua, 1) != 0; lua_pop(lua, 1)) {
        names.insert(lua_tostring(lua, -2));
    }
    EXPECT_EQ(names, expected);
}

TEST_F(sandbox, gives_a_script_its_settings_and_natives) {
    test_support::set_system_info("value", "40066", true);
    lua_sandbox box(settings(usual_settings), "", "hidden = 1");
    write_text(data_dir() / "db_reports", "12345");
    const long before = std::time(nullptr);
    const std::pair<std::string, std::string> cases[] = {
        {"CONFIG",
         "{\n   \"db_max_size\" : 4096,\n   \"own\" : {\n      \"key\" : 1\n   },\n   "
         "\"processor\" : {\n      \"dispatching_time\" : \"03:00\"\n   }\n}\n"},
        {"PATH_TO_DB", data_dir().string() + "/db_reports"},
        {"type(DB_MAX_SIZE) .. DB_MAX_SIZE", "number4096"},
        {"DISPATCHING_TIME", "03:00"},
        {"REPORTER_DATA_DIR", data_dir().string() + "/"},
        {"type(REPORTER_MODULE_ID) .. REPORTER_MODULE_ID", "number1010"},
        {"DUID .. SUPPORT .. LFD_BLOCK_BASIC_TRAFFIC_SUPPORT", "EMPTYDUID11"},
        {"hidden or sqlite3 or json or ipairs or require or io or setmetatable", "nil"},
        {"get_db_size()", "5"},
        {"remove_db_file()", "nil"},
        {"get_db_size()", "-1"},
        {"get_timestamp() - os.time() <= 1", "true"},
        {"inflate(deflate('a\\0b')) == base64_decode(base64_encode('a\\0b'))", "true"},
        {"sha256('abc')", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    };
    for (const auto& [expression, text] : cases) {
        // A native without a result gives nil only in the middle of a list.
        const std::string value =
            expression == "remove_db_file()" ? "(remove_db_file())" : expression;
        EXPECT_EQ(inside(box, value), text) << expression;
    }
    EXPECT_GE(std::stol(inside(box, "get_timestamp()")), before);
}

TEST_F(sandbox, logs_for_a_script) {
    lua_sandbox box(settings(usual_settings),
                    "LOG('a') WARN('b') TRACE('c') ERROR('d') LOG(5) "
                    "LOG({}) LOG()",
                    "");
    box.init();
    std::vector<std::string> lines;
    for (const std::string& line : recorder.messages()) {
        if (line.compare(1, 6, " LUA: ") == 0) {
            lines.push_back(line);
        }
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"I LUA: a", "W LUA: b", "I LUA: c", "E LUA: d",
                                               "I LUA: 5", "I LUA: ", "I LUA: "}));
}

TEST_F(sandbox, is_built_when_it_is_needed_and_again_after_a_release) {
    lua_sandbox built(settings(usual_settings), "n = 0 function count() n = n + 1 return n end",
                      "");
    lua_sandbox box(std::move(built));
    EXPECT_EQ(recorder.count("I lua_sandbox::init"), 0U);
    EXPECT_EQ(box.get().call<long>("count"), 1);
    box.init();
    EXPECT_EQ(box.get().call<long>("count"), 2);
    box.release();
    EXPECT_EQ(box.get().call<long>("count"), 1);
    EXPECT_EQ(recorder.count("I lua_sandbox::init"), 2U);
    EXPECT_EQ(recorder.count("I lua sandbox was created"), 2U);
    EXPECT_EQ(recorder.count("I new sandbox was created"), 2U);
    EXPECT_EQ(recorder.count("I lua_sandbox::release "), 1U);
}

TEST_F(sandbox, tries_again_after_a_failure) {
    const std::string later = data_dir() / "later.lua";
    const std::string run_later = "assert(loadfile('" + later + "'))()";
    lua_sandbox fails_before(settings(usual_settings), "", run_later);
    lua_sandbox fails_inside(settings(usual_settings), "load()",
                             "load = function() " + run_later + " end");
    for (lua_sandbox* box : {&fails_before, &fails_inside}) {
        std::filesystem::remove(later);
        EXPECT_NE(test_support::error_of<reporter::lua_exception>([&] { box->get(); }),
                  "nothing thrown");
        write_text(later, "x = 1");
        if (box == &fails_before) {
            EXPECT_EQ(inside(*box, "x"), "nil");
        }
    }
    lua_sandbox unset(settings(R"({"processor": {}})"), "", "");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(test_support::error_of([&] { unset.get(); }),
                  "key: dispatching_time is not string");
    }
}

TEST_F(sandbox, looks_for_modules_in_the_data_directory) {
    EXPECT_EQ(reporter::get_default_pre_script(),
              "package.path = package.path .. "
              "\"?;/opt/data/dpm/dplugins/tev-reporter-plugin/lib/lua/?.lua\"\n"
              "package.cpath = package.cpath .. "
              "\"?;/opt/data/dpm/dplugins/tev-reporter-plugin/lib/lua/?.so\"\n"
              "require \"sqlite3\"\njson = require \"json\"\n");
}
