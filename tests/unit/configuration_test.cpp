#include "configuration.h"

#include "support/device_root.h"

using namespace test_support;

class configuration : public device_test {
protected:
    const std::string dir = data_dir() / "config";
    const std::string scripts = data_dir() / "lua";
};

TEST_F(configuration, is_the_first_file_that_parses) {
    for (const std::string suffix : {"stg", "rel", "def"}) {
        write_text(dir + "/config." + suffix, "// why\n{\"a\": \"" + suffix + "\" /* what */}");
        EXPECT_EQ(reporter::load_config_file(dir)["a"], suffix);
    }
    write_text(dir + "/config.def", "{\"a\": ");
    EXPECT_EQ(reporter::load_config_file(dir)["a"], "rel");
}

TEST_F(configuration, converts_what_it_finds) {
    const reporter::config_helper helper(
        reporter::parse_config(R"({"n": -1, "big": 4294967296, "zero": 0,
            "in": {"in": {"text": "deep"}}})"),
        {});
    EXPECT_EQ(helper.get<unsigned int>("n"), 4294967295U);
    EXPECT_EQ(helper.get<unsigned int>("big"), 0U);
    EXPECT_EQ(helper.get<unsigned int>("no.such.key"), 0U);
    EXPECT_EQ(helper.get<std::string>("in.in.text"), "deep");
    EXPECT_TRUE(helper.get<bool>("n"));
    EXPECT_FALSE(helper.get<bool>("zero") || helper.get<bool>("absent"));
}

TEST_F(configuration, stays_where_a_failed_dotted_lookup_ended) {
    const reporter::config_helper helper(
        reporter::parse_config(R"({"db_max_size": 5, "processor": {}})"), {});
    EXPECT_THROW(helper.get<std::string>("processor.spread"), std::runtime_error);
    EXPECT_EQ(helper.get<unsigned int>("db_max_size"), 0U) << "looked up in \"processor\"";
    EXPECT_EQ(helper.get<unsigned int>("db_max_size"), 5U);
}

TEST_F(configuration, finds_scripts_by_the_beginning_of_their_names) {
    write_text(dir + "/config.rel", "{}");
    write_text(scripts + "/ext/ext_V4.lua", "not walked into");
    for (const auto& [name, version] : {std::pair("ext_V3.lua", "3"),
                                        {"early_V1.txt", ""},
                                        {"two_V1_V2.lua", "1_V2"},
                                        {"late.lua_V2", ""},
                                        {"none_V.lua", ""}}) {
        write_text(scripts + "/" + name, name);
        const std::string beginning(name, 3);
        const auto found = reporter::load_configuration(dir, scripts, {"xt_", beginning});
        EXPECT_EQ(found.get_script(beginning).content, name);
        EXPECT_EQ(found.get_script(beginning).version, version);
        EXPECT_THROW(found.get_script("xt_"), reporter::configuration_exception);
    }
}
