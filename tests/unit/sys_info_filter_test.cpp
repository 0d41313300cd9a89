#include "filter.h"
#include "support/device_root.h"
#include "sys_info.h"

using namespace test_support;
using facts = std::unordered_map<std::string, std::string>;

class device : public device_test {};

TEST_F(device, facts_come_from_their_keys_and_fall_back_each_for_itself) {
    set_vconf("db/comss/duid", "of the settings");
    const facts fallbacks = reporter::get_sys_info();
    const std::string maker = "com.morvana/featureconf/";
    const std::tuple<const char*, std::string, Json::Value, std::string, std::string> cases[] = {
        {"value", "333", 2, "DTV_TYPE", "ISDB"},
        {"value", "333", 3, "DTV_TYPE", ""},
        {"custom", maker + "product.product_type", 9, "PRODUCT_TYPE", "AI_SPK"},
        {"value", "801", "serial", "DUID", "serial"},
        {"value", "801", "", "DUID", "of the settings"},
        {"value", "1", "6.5", "TIZEN_VERSION", "6.5"},
        {"value", "2", "name", "PLATFORM_NAME", "name"},
        {"value", "128", "T-1", "SW_VERSION", "T-1"},
        {"value", "199", "M-1", "SW_VERSION_MODEL", "M-1"},
        {"platform", "http://tizen.org/system/manufacturer", "V", "VENDOR", "V"},
        {"custom", maker + "product.manufacturer", "M", "MANUFACTURER", "M"},
        {"value", "40066", true, "LFD_BLOCK_BASIC_TRAFFIC_SUPPORT", "1"},
        {"value", "40066", false, "SUPPORT", "1"},
        {"custom", maker + "security.tev.tev_support", false, "SUPPORT", "0"},
    };
    for (const auto& [section, key, value, fact, text] : cases) {
        set_system_info(section, key, value);
        facts expected = fallbacks;
        expected[fact] = text;
        EXPECT_EQ(reporter::get_sys_info(), expected) << key << " gives " << fact;
        set_system_info(section, key, Json::Value());
    }
}

TEST_F(device, consent_is_the_value_one) {
    for (const Json::Value& value : std::vector<Json::Value>{1, 2, "1", Json::Value()}) {
        set_vconf("db/menu/homedeck/homedatacontrol/defaultdisclaimeragree", value);
        EXPECT_EQ(reporter::get_user_agreement(), value == 1) << value;
    }
}

TEST_F(device, filters_take_in_what_switches_and_scripts_allow) {
    reporter::report record;
    const facts blocked{{"SUPPORT", "1"}, {"LFD_BLOCK_BASIC_TRAFFIC_SUPPORT", "0"}};
    EXPECT_TRUE(reporter::default_filter(facts{{"SUPPORT", "1"}})(record));
    for (const facts& known : {facts{{"SUPPORT", "0"}}, blocked, facts{}}) {
        EXPECT_FALSE(reporter::default_filter(known)(record));
    }
    reporter::lua::lua_state state;
    state.run_script("function filter(r) return r.size == 0 or r.content == 'ab' end");
    reporter::lua_filter by_script(std::move(state));
    EXPECT_TRUE(by_script(record));
    record.content = {'b'};
    EXPECT_FALSE(by_script(record));
}
