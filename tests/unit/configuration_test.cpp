#include "configuration.h"

#include <map>

#include "support/device_root.h"
#include "support/error_of.h"

using namespace test_support;
using reporter::config_helper;
using reporter::configuration_exception;

namespace {

class configuration : public device_test {
protected:
    const std::string dir = data_dir() / "config";
    const std::string scripts = data_dir() / "lua";
};

config_helper helper_of(const std::string& text) {
    return {reporter::parse_config(text), {}};
}

}  // namespace

TEST_F(configuration, takes_the_first_file_that_parses) {
    const messages suffixes{"def", "rel", "stg"};
    for (std::size_t valid = 0; valid <= suffixes.size(); ++valid) {
        reset_device();
        recorder.clear();
        messages log;
        for (std::size_t i = 0; i < suffixes.size(); ++i) {
            const std::string path = dir + "/config." + suffixes[i];
            if (i >= valid) {
                write_text(path, "// why\n{\"a\": " + std::to_string(i) + " /* how much */}");
            } else if (i == 0) {
                write_text(path, "{\"a\": ");
            }
            if (i <= valid) {
                log.push_back(i < valid ? "I inspect: " + path
                                        : "I config: " + path + " was loaded");
            }
        }
        const std::string error = error_of<configuration_exception>(
            [&] { EXPECT_EQ(reporter::load_config_file(dir)["a"].asUInt(), valid); });
        EXPECT_EQ(error, valid < suffixes.size() ? "nothing thrown" : "config doesn't found");
        EXPECT_EQ(recorder.messages(), log);
    }
    EXPECT_EQ(error_of<configuration_exception>([] { reporter::parse_config("[1,"); }),
              "bad configuration");
}

TEST_F(configuration, converts_what_it_finds) {
    const auto helper = helper_of(R"({"n": -1, "big": 4294967296, "yes": true, "zero": 0,
        "text": "t", "in": {"n": 7, "in": {"text": "deep"}}})");
    EXPECT_EQ(helper.get<unsigned int>("n"), 4294967295U);
    EXPECT_EQ(helper.get<unsigned int>("big"), 0U);
    EXPECT_EQ(helper.get<unsigned int>("in.n"), 7U);
    EXPECT_EQ(helper.get<unsigned int>("no.such.key"), 0U);
    EXPECT_EQ(helper.get<std::string>("in.in.text"), "deep");
    EXPECT_TRUE(helper.get<bool>("yes") && helper.get<bool>("n"));
    EXPECT_FALSE(helper.get<bool>("zero") || helper.get<bool>("absent"));
    EXPECT_THROW(helper.get<unsigned int>("text"), std::exception);
    EXPECT_FALSE(helper.get_helper("absent").get<bool>("yes"));
    EXPECT_EQ(helper.get_helper("in").get<unsigned int>("n"), 7U);
}

TEST_F(configuration, stays_where_a_failed_dotted_lookup_ended) {
    const auto helper = helper_of(R"({"db_max_size": 5, "processor": {"dispatching_time": "0"}})");
    EXPECT_EQ(helper.get<std::string>("processor.dispatching_time"), "0");
    EXPECT_EQ(helper.get<unsigned int>("db_max_size"), 5U);
    EXPECT_EQ(error_of([&] { helper.get<std::string>("processor.spread"); }),
              "key: spread is not string");
    EXPECT_EQ(helper.get<unsigned int>("db_max_size"), 0U) << "looked up in \"processor\"";
    EXPECT_EQ(helper.get<unsigned int>("db_max_size"), 5U);
}

TEST_F(configuration, falls_back_to_a_default_with_two_lines) {
    const auto helper = helper_of(R"({"path": 5, "other": "o"})");
    EXPECT_EQ(helper.get<std::string>("path", "reports"), "reports");
    EXPECT_EQ(helper.get<std::string>("other", "reports"), "o");
    EXPECT_EQ(recorder.messages(),
              (messages{"I config_helper", "E key: path is not string",
                        "I get key: path, default value: reports", "I get key: other : o"}));
}

TEST_F(configuration, finds_scripts_by_the_beginning_of_their_names) {
    write_text(dir + "/config.rel", "{}");
    write_text(scripts + "/ext_V3.lua", "three");
    write_text(scripts + "/lib/ext_V4.lua", "not walked into");
    write_text(scripts + "/next_V5.lua", "another name");
    write_text(scripts + "/bak", "b");
    const auto helper = reporter::load_configuration(dir, scripts, {"ext", "ba", "absent"});
    EXPECT_EQ(helper.get_script("ext").content, "three");
    EXPECT_EQ(helper.get_script("ext").version, "3");
    EXPECT_EQ(helper.get_script("ext").path, scripts + "/ext_V3.lua");
    EXPECT_EQ(helper.get_script("ba").content + helper.get_script("ba").version, "b");
    EXPECT_EQ(error_of<configuration_exception>([&] { helper.get_script("absent"); }),
              "script: absent doesn't found");
    EXPECT_EQ(error_of<configuration_exception>([&] { helper.get_helper("a").get_script("ext"); }),
              "script: ext doesn't found");
    EXPECT_EQ(error_of<configuration_exception>(
                  [&] { reporter::load_configuration("/none", scripts, {}); }),
              "config doesn't found");
    EXPECT_NE(error_of<configuration_exception>([&] {
                  reporter::load_configuration(dir, "/none", {});
              }).find("/none"),
              std::string::npos);
}

TEST_F(configuration, reads_the_version_between_the_marks) {
    const std::map<std::string, std::string> names{{"processor_extension_V3.lua", "3"},
                                                   {"processor_extension.lua", ""},
                                                   {"a_V1.txt", ""},
                                                   {"a_V1_V2.lua", "1_V2"},
                                                   {"a.lua_V2", ""},
                                                   {"_V.lua", ""}};
    for (const auto& [name, version] : names) {
        EXPECT_EQ(reporter::get_version_of_script(name), version) << name;
    }
}
