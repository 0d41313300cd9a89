#include "support/agent_run.h"

namespace {

using namespace test_support;
namespace fs = std::filesystem;

// Three reports are stored, a good server waits, and something is spoilt.
class bad_input : public pass_test {
protected:
    void SetUp() override {
        pass_test::SetUp();
        use_collector();
        sound = config;
        save(3);
    }

    // As `expect`, and afterwards all is sound again.
    void expect_once(const std::string& line, int left = 3) {
        expect(line, left);
        config = sound;
        save(3 - stored());
    }

    // One life without the sender's setting, then one with a value of another type.
    void spoil(const char* key, const std::string& absent, int left, const Json::Value& other,
               const std::string& mistaken, int mistaken_left = 3) {
        sender().removeMember(key);
        expect_once(absent, left);
        sender()[key] = other;
        expect_once(mistaken, mistaken_left);
    }

    Json::Value sound;
    const fs::path script = data_dir() / "lua" / "processor_extension_V1.lua";
};

TEST_F(bad_input, in_a_setting) {
    for (const char* key : {"server_url", "server_port", "config_version"}) {
        const std::string line = std::string("E some_error: key: ") + key + " is not string";
        spoil(key, line, 3, 443, line);
    }
    const std::string number = "E some_error: Value is not convertible to Int64.";
    const std::string flag = "Value is not convertible to bool.", sent = "I codes: 3";
    spoil("sending_timeout", "I host_http_session( *", 0, "60", number);
    spoil("max_count_sending_tries", "I current try: 1 max count tries: 1", 0, "2", number);
    spoil("max_body_size", "I count reports before checking hashes: 0", 0, "1", number);
    spoil("reports_path", "E key: reports_path is not string", 0, 3,
          "I get key: reports_path, default value: reports", 0);
    const std::string fatal = "E fatal error in module[report_sender_module]: ";
    spoil("vxt_service", sent, 0, "no", "E some_error: " + flag);
    spoil("reporter_registration", sent, 0, "no", fatal + flag);
    spoil("reporter_sending", "I Sending reports canceled. Sending off via config", 3, "yes",
          fatal + flag);
    sound["sender"]["reporter_registration"] = true;
    config = sound;
    const std::string duid = "key: agent_registered_duid is not string";
    spoil("agent_registered_duid", fatal + duid, 3, 7, fatal + duid);
    config.removeMember("sender");
    expect_once("I Sending reports canceled. Sending off via config");

    sound["sender"]["reporter_registration"] = false;
    config = sound;
    config.removeMember("db_max_size");
    expect_once("I db_max_size: 0", 0);
    config["db_max_size"] = "1";
    expect_once("E Value is not convertible to Int64.");
    config["processor"]["dispatching_time"] = 0;
    expect_once("E key: dispatching_time is not string");
    config.removeMember("processor");
    expect_once("E key: dispatching_time is not string");
    config["processor"]["dispatching_time"] = "25:00";
    expect_once("E LUA: bad dispatching time, 03:00 is used instead: 25:00", 0);
}

TEST_F(bad_input, in_the_script) {
    const std::string text = read_text(script);
    const std::string no_table = "E some_error: lua: bad return type, must be table( array )";
    const std::pair<std::string, std::string> scripts[] = {
        {"function", "E can't run script, error: *"},
        {"error('no')", "E can't run script, error: *"},
        {"", "E some_error: lua_state dosn't has the function: get_all_dispatch_times"},
        {"function get_all_dispatch_times() return 1 end", no_table},
        {"function get_all_dispatch_times() error('broken', 0) end", "E some_error: broken"},
        {text + "function get_ids_by_dispatch_time() end", no_table},
        {text + "function get_report_as_json_by_id() return true end",
         "E can't get report: lua: bad return type, must be string"},
        {text + "function get_report_as_json_by_id() return '{' end",
         "E can't get report: can't parse json"},
        {text + "function get_report_as_json_by_id() return '[]' end",
         "E can't get report: report isn't an object"},
        {text + "function get_report_as_json_by_id() return '{\"count\": []}' end",
         "E some_error: Value is not convertible to UInt."},
        {"os.exit()", "I main_script: os.exit()"},
        {text + "function remove_report_by_id() return 'x' end", "E can't remove report: *"},
    };
    for (const auto& [content, line] : scripts) {
        write_text(script, content);
        expect(line, 3);
    }
    // A report that cannot be read does not hold back the others, which are here without a count.
    write_text(script,
               text +
                   "local get = get_report_as_json_by_id "
                   "function get_report_as_json_by_id(id) first = first or id "
                   "return (get(id == first and 1 or id):gsub('\"count\":1', '\"count\":0')) end");
    expect("E can't get report: unknown report id: 1", 1);
    EXPECT_EQ(read_text(data_dir() / "journal").substr(20), "::sender::unknown report id: 1\n");
    EXPECT_EQ(stats()["sent"]["7"], 3 + 2);
    fs::remove(script);
    expect("E script: processor_extension doesn't found", 1);
    fs::remove(script.parent_path());
    expect("E boost::filesystem::directory_iterator::construct: *", 1);
}

TEST_F(bad_input, in_the_files_around) {
    const strings command = agent();
    const fs::path file = data_dir() / "config" / "config.def";
    for (const auto& spoil : {+[](const fs::path& path) { write_text(path, "{"); },
                              +[](const fs::path& path) { fs::remove(path); }}) {
        spoil(file);
        EXPECT_EQ(end_of(child_process(command)).missing({"E config doesn't found"}), "");
    }
    for (const auto& [name, letter] : {std::pair("tev_reporter_db_file_lock", "E "),
                                       {"tev_reporter_stats_file_lock", "E some_error: "}}) {
        const std::string path = lock_dir() / name;
        fs::remove(path);
        expect(std::string(letter) + "Failed to create or open: " + path, 3);
        write_text(path, "");
    }
}

}  // namespace
