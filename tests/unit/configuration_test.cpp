#include "configuration.h"

#include "support/device_root.h"
#include "support/error_of.h"
#include "support/platform_recorder.h"

using reporter::config_helper;
using test_support::data_dir;
using test_support::platform_recorder;
using test_support::write_text;
using messages = std::vector<std::string>;

namespace {

class configuration : public test_support::device_test {
protected:
    const std::string dir = data_dir() / "config";
    const std::string scripts_dir = data_dir() / "lua";
};

config_helper helper_of(const std::string& text) {
    return {reporter::parse_config(text), {}};
}

template <class Call>
std::string error_of(Call call) {
    return test_support::error_of<reporter::configuration_exception>(call);
}

}  // namespace

TEST_F(configuration, takes_the_first_file_that_parses) {
    const struct {
        std::map<std::string, std::string> files;
        std::string taken;
        unsigned int inspected;
    } cases[] = {
        {{{"def", "{\"a\": 1}"}, {"rel", "{\"a\": 2}"}, {"stg", "{\"a\": 3}"}}, "def", 0},
        {{{"def", "{\"a\": "}, {"rel", "// why\n{\"a\": 2 /* two */}"}}, "rel", 1},
        {{{"stg", "{\"a\": 3}"}}, "stg", 2},
        {{{"rel", ""}, {"txt", "{\"a\": 4}"}}, "", 3},
    };
    for (const auto& state : cases) {
        platform_recorder recorder;
        test_support::reset_device();
        messages expected;
        for (const char* suffix : {"def", "rel", "stg"}) {
            expected.push_back("I inspect: " + dir + "/config." + suffix);
        }
        expected.resize(state.inspected);
        for (const auto& [suffix, text] : state.files) {
            write_text(dir + "/config." + suffix, text);
        }
        if (state.taken.empty()) {
            EXPECT_EQ(error_of([&] { reporter::load_config_file(dir); }), "config doesn't found");
        } else {
            expected.push_back("I config: " + dir + "/config." + state.taken + " was loaded");
            EXPECT_EQ(reporter::load_config_file(dir)["a"].asUInt(), state.inspected + 1);
        }
        EXPECT_EQ(recorder.messages(), expected);
    }
    EXPECT_EQ(error_of([] { reporter::parse_config("[1,"); }), "bad configuration");
}

TEST_F(configuration, converts_what_it_finds) {
    const auto helper = helper_of(R"({"n": -1, "big": 4294967296, "yes": true, "zero": 0,
        "text": "t", "in": {"n": 7, "in": {"text": "deep"}}})");
    EXPECT_EQ(helper.get<unsigned int>("n"), 4294967295U);
    EXPECT_EQ(helper.get<unsigned int>("big"), 0U);
    EXPECT_EQ(helper.get<unsigned int>("in.n"), 7U);
    EXPECT_EQ(helper.get<unsigned int>("no.such.key"), 0U);
    EXPECT_EQ(helper.get<std::string>("in.in.text"), "deep");
    EXPECT_TRUE(helper.get<bool>("yes"));
    EXPECT_TRUE(helper.get<bool>("n"));
    EXPECT_FALSE(helper.get<bool>("zero"));
    EXPECT_FALSE(helper.get<bool>("absent"));
    EXPECT_THROW(helper.get<unsigned int>("text"), std::exception);
    EXPECT_FALSE(helper.get_helper("absent").get<bool>("yes"));
    EXPECT_EQ(helper.get_helper("in").get<unsigned int>("n"), 7U);
}

TEST_F(configuration, stays_where_a_failed_dotted_lookup_ended) {
    const auto helper = helper_of(R"({"db_max_size": 5, "processor": {"dispatching_time": "0"}})");
    EXPECT_EQ(helper.get<std::string>("processor.dispatching_time"), "0");
    EXPECT_EQ(helper.get<unsigned int>("db_max_size"), 5U);
    EXPECT_EQ(test_support::error_of([&] { helper.get<std::string>("processor.spread"); }),
              "key: spread is not string");
    EXPECT_EQ(helper.get<std::string>("dispatching_time"), "0");
    EXPECT_EQ(helper.get<unsigned int>("db_max_size"), 5U);
}

TEST_F(configuration, falls_back_to_a_default_with_two_lines) {
    platform_recorder recorder;
    const auto helper = helper_of(R"({"path": 5, "other": "o"})");
    EXPECT_EQ(helper.get<std::string>("path", "reports"), "reports");
    EXPECT_EQ(helper.get<std::string>("other", "reports"), "o");
    EXPECT_EQ(recorder.messages(),
              (messages{"I config_helper", "E key: path is not string",
                        "I get key: path, default value: reports", "I get key: other : o"}));
}

TEST_F(configuration, finds_scripts_by_the_beginning_of_their_names) {
    write_text(dir + "/config.rel", "{}");
    write_text(scripts_dir + "/ext_V3.lua", "three");
    write_text(scripts_dir + "/lib/ext_V4.lua", "not walked into");
    write_text(scripts_dir + "/next_V5.lua", "another name");
    write_text(scripts_dir + "/bak", "b");
    const auto helper = reporter::load_configuration(dir, scripts_dir, {"ext", "ba", "absent"});
    EXPECT_EQ(helper.get_script("ext").content, "three");
    EXPECT_EQ(helper.get_script("ext").version, "3");
    EXPECT_EQ(helper.get_script("ext").path, scripts_dir + "/ext_V3.lua");
    EXPECT_EQ(helper.get_script("ba").content + helper.get_script("ba").version, "b");
    EXPECT_EQ(error_of([&] { helper.get_script("absent"); }), "script: absent doesn't found");
    EXPECT_EQ(error_of([&] { helper.get_helper("a").get_script("ext"); }),
              "script: ext doesn't found");
    EXPECT_EQ(error_of([&] { reporter::load_configuration("/none", scripts_dir, {}); }),
              "config doesn't found");
    EXPECT_NE(error_of([&] { reporter::load_configuration(dir, "/none", {}); }).find("/none"),
              std::string::npos);
}

TEST_F(configuration, reads_the_version_between_the_marks) {
    const std::pair<const char*, const char*> names[] = {{"processor_extension_V3.lua", "3"},
                                                         {"processor_extension.lua", ""},
                                                         {"a_V1.txt", ""},
                                                         {"a_V1_V2.lua", "1_V2"},
                                                         {"a.lua_V2", ""},
                                                         {"_V.lua", ""}};
    for (const auto& [name, version] : names) {
        EXPECT_EQ(reporter::get_version_of_script(name), version) << name;
    }
}
