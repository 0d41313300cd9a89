#include "filter.h"
#include "support/device_root.h"
#include "support/error_of.h"
#include "sys_info.h"

using namespace test_support;
using reporter::lua_exception;
using reporter::report;
using facts = std::unordered_map<std::string, std::string>;

class device : public device_test {};

const facts fallbacks = {{"DTV_TYPE", ""},         {"PRODUCT_TYPE", ""},  {"DUID", "EMPTYDUID"},
                         {"TIZEN_VERSION", ""},    {"PLATFORM_NAME", ""}, {"SW_VERSION", ""},
                         {"SW_VERSION_MODEL", ""}, {"VENDOR", ""},        {"MANUFACTURER", ""},
                         {"SUPPORT", "1"}};

TEST_F(device, facts_come_from_their_keys_and_fall_back_each_for_itself) {
    const std::string maker = "com.morvana/featureconf/";
    const std::string block = "LFD_BLOCK_BASIC_TRAFFIC_SUPPORT";
    const std::tuple<const char*, std::string, Json::Value, std::string, std::string> cases[] = {
        {"value", "333", 2, "DTV_TYPE", "ISDB"},
        {"value", "333", 3, "DTV_TYPE", ""},
        {"value", "333", "1", "DTV_TYPE", ""},
        {"custom", maker + "product.product_type", 9, "PRODUCT_TYPE", "AI_SPK"},
        {"custom", maker + "product.product_type", 10, "PRODUCT_TYPE", ""},
        {"custom", maker + "product.product_type", -1, "PRODUCT_TYPE", ""},
        {"value", "801", "serial", "DUID", "serial"},
        {"value", "801", "", "DUID", "EMPTYDUID"},
        {"value", "1", "6.5", "TIZEN_VERSION", "6.5"},
        {"value", "2", "name", "PLATFORM_NAME", "name"},
        {"value", "128", "T-1", "SW_VERSION", "T-1"},
        {"value", "199", "M-1", "SW_VERSION_MODEL", "M-1"},
        {"platform", "http://tizen.org/system/manufacturer", "V", "VENDOR", "V"},
        {"custom", maker + "product.manufacturer", "M", "MANUFACTURER", "M"},
        {"value", "40066", true, block, "1"},
        {"value", "40066", false, "SUPPORT", "1"},
        {"value", "40066", 1, "SUPPORT", "1"},
        {"custom", maker + "security.tev.tev_support", true, "SUPPORT", "1"},
        {"custom", maker + "security.tev.tev_support", false, "SUPPORT", "0"},
    };
    EXPECT_EQ(reporter::get_sys_info(), fallbacks);
    for (const auto& [section, key, value, fact, text] : cases) {
        set_system_info(section, key, value);
        facts expected = fallbacks;
        expected[fact] = text;
        EXPECT_EQ(reporter::get_sys_info(), expected) << key << " gives " << fact;
        EXPECT_GT(recorder.count("I " + fact + " : " + text), 0U);
        set_system_info(section, key, Json::Value());
    }
    write_text(platform_dir() / "system_info.json", "[");
    EXPECT_EQ(reporter::get_sys_info(), fallbacks);
}

TEST_F(device, identifier_is_looked_for_in_three_places) {
    EXPECT_EQ(reporter::get_sys_info_duid(), "EMPTYDUID");
    set_vconf("db/comss/duid", "of the settings");
    EXPECT_EQ(reporter::get_sys_info_duid(), "of the settings");
    set_system_info("value", "801", "of the system");
    EXPECT_EQ(reporter::get_sys_info_duid(), "of the system");
}

TEST_F(device, consent_is_the_value_one) {
    const std::pair<Json::Value, const char*> values[] = {
        {1, "I User agreement value: ACCEPT"},
        {0, "I User agreement value: REJECT"},
        {2, "I User agreement value: REJECT"},
        {"1", "I Failed to read vconf: -"},
        {Json::Value(), "I Failed to read vconf: -"}};
    for (const auto& [value, line] : values) {
        set_vconf("db/menu/homedeck/homedatacontrol/defaultdisclaimeragree", value);
        EXPECT_EQ(reporter::get_user_agreement(), value == 1);
        EXPECT_EQ(recorder.messages().back().rfind(line, 0), 0U) << recorder.messages().back();
    }
}

TEST_F(device, switches_let_all_reports_in_or_none) {
    const std::pair<facts, bool> cases[] = {
        {{{"SUPPORT", "1"}}, true},
        {{{"SUPPORT", "0"}}, false},
        {{{"SUPPORT", "1"}, {"LFD_BLOCK_BASIC_TRAFFIC_SUPPORT", "0"}}, false},
        {{}, false}};
    for (const auto& [known, passes] : cases) {
        EXPECT_EQ(reporter::default_filter(known)(report{}), passes);
    }
    EXPECT_EQ(recorder.messages()[4], "I default_filter::_support= 1");
    EXPECT_EQ(recorder.messages()[5], "I default_filter::_lfd_block_basic_traffic_support= 1");
}

TEST_F(device, scripts_filter_report_by_report) {
    const auto make_filter = [](const std::string& script) {
        reporter::lua::lua_state state;
        state.run_script(script);
        return reporter::lua_filter(std::move(state));
    };
    report record;
    auto by_size = make_filter("function filter(r) return r.size > 1 and r.content == 'ab' end");
    EXPECT_FALSE(by_size(record));
    record.content = {'a', 'b'};
    EXPECT_TRUE(by_size(record));
    const std::pair<const char*, const char*> failing[] = {
        {"function filter() end", "lua: bad return type, must be boolean"},
        {"function filter() error('boom', 0) end", "boom"},
        {"", "lua_state dosn't has the function: filter"}};
    for (const auto& [script, error] : failing) {
        auto filter = make_filter(script);
        EXPECT_EQ(error_of<lua_exception>([&] { filter(record); }), error);
    }
}
