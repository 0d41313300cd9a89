#include <unistd.h>

#include <algorithm>
#include <random>
#include <tuple>

#include "common.h"
#include "json_io.h"
#include "support/agent_run.h"
#include "support/raw_peer.h"

namespace {

using namespace test_support;

class sending : public pass_test {
protected:
    // Occurrences by module, as {"7":2}.
    static std::string counted(const std::string& event) {
        const std::string text = reporter::json_compact(stats()[event]);
        return text.substr(0, text.size() - 1);
    }
};

TEST_F(sending, logs_each_step_in_order) {
    save(1);
    use_collector();
    const pass life = run_pass();
    const std::string data = data_dir();
    const strings start = lines_of(
        "I ppid: " + std::to_string(getpid()) + "\nI " + data + "/tev_reporter_main\nI " + data +
        "/\nI load_configuration: " + data + "//lua\nI scripts were loaded\nI config: " + data +
        "/config/config.def was loaded\nI config_helper\nI get script: processor_extension\n"
        "I lua sandbox was created\nI reports_storage created\nI config: *\nI _stopped= ? 0\n"
        "I module[report_sender_module] are constructed\n"
        "I module_host::run module[report_sender_module]");
    const strings main_thread = lines_of(
        "I module_host::wait module: report_sender_module\nI joinable?= 1 report_sender_module\n"
        "I waited  report_sender_module\nI stopping module: report_sender_module\n"
        "I joinable?= 0 report_sender_module\nI module_host::wait module: report_sender_module\n"
        "I waited  report_sender_module\nI ~modules_host: report_sender_module");
    const strings sender_thread = lines_of(
        "I before 'run_impl' module[report_sender_module]\n"
        "I report_sender_module_policy::start 0\nI now datetime: *\nI timestapms: 1\n"
        "I timestamp: *\nI time expired: *\nI count ids in cursor: 1\nI next cursor\n"
        "I reports size: 1\nI chunk_index: 0\nI slow down\nI JSON size: *\nI slow down\n"
        "I count reports before checking hashes: 1\nI NEED CHECK HASH: 0\nI slow down\n"
        "I count reports after checking hashes: 1\nI reports count: 1\nI documents: \n"
        "I try to do post request( reports )\nI request size: *\n"
        "I current try: 1 max count tries: 1\nI response status code: 200\n"
        "I response: {\"body\":[200]}\nI some_report_was_sent: 0\nI code: 200\nI codes: 1\n"
        "I storage::remove_reports: 1\nI skip_report\nI report_sender_module_policy::finish\n"
        "I after 'run_impl' module[report_sender_module]\nI waited  report_sender_module");
    EXPECT_EQ(life.log[0].substr(0, 16), "I processor pid:");
    EXPECT_EQ(life.missing(joined(start, main_thread)), "");
    EXPECT_EQ(life.missing(joined(start, sender_thread)), "");
}

TEST_F(sending, passes_gates) {
    const std::string canceled = "I Sending reports canceled. ";
    const std::tuple<bool, bool, int, const char*, std::string, std::string> gates[] = {
        {false, false, 1, "", canceled + "Sending off via config", ""},
        {true, true, 1, "", canceled + "Registration not completed", ""},
        {false, true, 0, "", canceled + "Waiting for user agreement", ""},
        {true, false, 1, "ENROLLED", "I report_sender_module_policy::finish", "ENROLLED"},
        {false, true, 1, "ENROLLED", "I report_sender_module_policy::finish", "DEVICE"},
    };
    set_system_info("value", "801", "DEVICE");
    save(1);
    for (const auto& [registration, switched_on, agreement, enrolled, line, sent_as] : gates) {
        use_collector();
        sender()["reporter_registration"] = registration;
        sender()["reporter_sending"] = switched_on;
        sender()["agent_registered_duid"] = enrolled;
        set_vconf("db/menu/homedeck/homedatacontrol/defaultdisclaimeragree", agreement);
        expect(line, sent_as.empty() ? 1 : 0);
        EXPECT_EQ(requests().size(), sent_as.empty() ? 0U : 1U);
        EXPECT_EQ(sent_as.empty() ? "" : received().at(0)["DUID"], sent_as);
        save(sent_as.empty() ? 0 : 1);
    }
}

TEST_F(sending, takes_what_is_due_to_the_server) {
    std::filesystem::remove_all(platform_dir() / "secure_storage");
    write_text("/usr/share/sdp/tev-reporter-plugin-key/00000051.bin",
               read_text(pki_dir() + "/00000051.bin"));
    const std::string secret = "what nobody but the server may read";
    save({-5, 1, {secret.begin(), secret.end()}, 0});
    query("UPDATE accounts SET next_id = 4294967290");
    save({0, 1, {0, 255, 0}, 9});
    save({0, 1, {}, 9});
    save({0, 1, {}, 0});
    // Takes more than one piece to upload.
    std::vector<unsigned char> large(100000);
    std::generate(large.begin(), large.end(), std::minstd_rand());
    save({4, 1, large, 0});
    config["processor"]["dispatching_time"] = "03:00";
    save({3, 2, {'l', 'a', 't', 'e', 'r'}, 0});
    use_collector();
    const pass life = run_pass();
    const std::string content = received().at(0)["content"].asString();
    for (const std::string& line : life.log) {
        EXPECT_EQ(line.find(secret), std::string::npos);
        EXPECT_EQ(line.find(content), std::string::npos);
    }
    // The collector itself compares each content with its hash.
    std::string sent;
    for (const auto& report : received()) {
        sent += report["module"].asString() + "*" + report["count"].asString() + " ";
    }
    EXPECT_EQ(sent, "-5*1 0*2 0*1 4*1 ");
    EXPECT_EQ(query("SELECT module FROM reports"), "3");
    EXPECT_EQ(counted("sent"), R"({"-":3,"-5":1,"4":1})");
    EXPECT_EQ(counted("removed"), counted("sent"));
}

TEST_F(sending, works_with_the_small_script) {
    write_text(data_dir() / "lua" / "processor_extension_V1.lua",
               read_text(source_dir() / "examples" / "small_store.lua"));
    save({-5, 1, {0, 255, '\'', '%'}, 4294967295});
    save({7, 2, {}, 0});
    use_collector({"--answer", "* reports codes=200,503"});
    expect("I codes: 2", 1);
    EXPECT_EQ(received().at(0)["aggregationid"].asUInt(), 4294967295);
    use_collector();
    expect("I codes: 1", 0);
    EXPECT_EQ(received().at(0)["module"].asInt(), 7);
    EXPECT_EQ(counted("removed"), R"({"-5":1,"7":1})");
    save(1);
    EXPECT_EQ(query("SELECT id FROM reports"), "3");
}

TEST_F(sending, cuts_chunks_below_the_limit) {
    save(3);
    sender()["max_body_size"] = 1;
    use_collector({"--answer", "* reports status=503"});
    const pass first = run_pass();
    int size = 1;
    while (first.count("I JSON size: " + std::to_string(size) + " *") == 0) {
        ++size;
    }
    const std::tuple<int, std::size_t, int> borders[] = {
        {0, 3, 1},        {size - 1, 3, 1}, {size, 3, 1},         {size + 1, 3, 0},
        {2 * size, 3, 0}, {3 * size, 2, 0}, {2 * size + 1, 2, 0}, {3 * size + 1, 1, 0}};
    for (const auto& [limit, chunks, empty_flushes] : borders) {
        SCOPED_TRACE(limit - size);
        sender()["max_body_size"] = limit;
        use_collector({"--answer", "* reports status=503"});
        const pass life = run_pass();
        EXPECT_EQ(requests().size(), chunks);
        EXPECT_EQ(requests().at(0), "/reports " + std::to_string(4 - chunks) + " 503");
        EXPECT_EQ(life.count("I count reports before checking hashes: 0"), empty_flushes);
    }
}

TEST_F(sending, drops_by_hash_check_what_is_known) {
    const std::tuple<std::string, std::string, int> answers[] = {
        {"codes=0,true", "I idx: 1 state: 1", 2},
        {"codes=1.9", "I idx: 0 state: 1", 2},
        {"codes=1,1,1,2", "I to many states of hashes", 1},
        {"codes=2,4294967295", "I idx: 1 state: 4294967295", 3},
        {"codes=1,[1]", "E Value is not convertible to UInt.*", 3},
        {"codes=-1,1", "E *", 3},
        {"body=[", "E bad response, isn't a json", 3},
        {"body=null", "I filtered_reports::size: 2", 3},
        {"status=503", "I can't check hashes: status code: 503 response: *", 3},
    };
    config["processor"]["check_hash_min_size"] = 100;
    for (const auto& [answer, line, sent] : answers) {
        save(1);
        save(2, std::string(100, '-'));
        use_collector({"--answer", "* check_hashes " + answer});
        expect(line, 0);
        EXPECT_EQ(requests().at(1), "/reports " + std::to_string(sent) + " 200");
    }
    EXPECT_EQ(counted("sent"), R"({"7":23})");
    EXPECT_EQ(counted("removed"), R"({"7":27})");
}

TEST_F(sending, removes_by_the_codes_200_and_400) {
    const std::tuple<std::string, std::string, int, const char*> answers[] = {
        {"codes=503,404,0", "I codes: 3", 5, "null"},
        {"status=503", "I codes: 0", 5, "null"},
        {"status=204", "I codes: 0", 5, "null"},
        {"body={ keep=no", "E some_error: bad response, isn't a json", 5, "null"},
        {"codes=200,400,503,1", "I codes: 4", 3, R"({"7":2})"},
        {"codes=200", "I codes: 1", 2, R"({"7":3})"},
        {"status=400", "I codes: 2", 0, R"({"7":5})"},
    };
    save(5);
    sender()["max_count_sending_tries"] = 3;
    for (const auto& [answer, line, left, counts] : answers) {
        use_collector({"--answer", "* reports " + answer});
        expect(line, left);
        EXPECT_EQ(requests().size(), 1U);
        EXPECT_EQ(counted("sent"), counts);
        EXPECT_EQ(counted("removed"), counts);
    }
    EXPECT_EQ(read_text(data_dir() / "journal").substr(20),
              "::sender::bad response, isn't a json\n");
}

TEST_F(sending, tries_posting_again_only_where_nobody_answers) {
    save(1);
    const listener refusing(-1);
    use_port(refusing.port());
    for (const auto& [configured, tries] : {std::pair(0, 1), {1, 1}, {3, 3}, {25, 10}}) {
        sender()["max_count_sending_tries"] = configured;
        EXPECT_EQ(run_pass().count("I current try: *"), tries);
    }
    // libcurl does not take the address, so there is no try at all.
    sender()["server_url"] = std::string(9'000'000, '/');
    expect("E cann't send: 106 : CURLOPT_URL ! A libcurl function was given a bad argument", 1);
    EXPECT_EQ(read_text(data_dir() / "journal").substr(20, 16), "::sender::106 : ");
}

TEST_F(sending, writes_this_request) {
    const strings reports = {
        R"({ "Z": "\u00e4\u0000\/\"\ud83d\ude00 ä", "check_hash": 2, "_ID": 1, "a": [] } //)",
        R"({"Z":{"b":[1,2.50,-0.0,1e300,true,null,{}],"":18446744073709551615}})", "{}",
        R"({"content":")" + std::string(70'000, '+') + "\"}", R"({"content":"last"})"};
    save(static_cast<int>(reports.size()));
    const std::string first = query("SELECT min(id) FROM reports");
    std::string texts;
    Json::Value expected;
    for (const auto& text : reports) {
        texts += "[==[" + text + "]==],";
        Json::Value& report = expected["body"].append(reporter::json_parse(text));
        report.removeMember("check_hash");
        report["_ID"] = std::stoi(first) + static_cast<int>(expected["body"].size()) - 1;
    }
    const auto script = data_dir() / "lua" / "processor_extension_V1.lua";
    write_text(script, read_text(script) + "function get_report_as_json_by_id(id) return ({" +
                           texts + "})[id + 1 - " + first + "] end");
    sender()["reports_path"] = "/reports";
    sender()["max_body_size"] = 100'000;
    raw_peer server({answering(answer("{}"))});
    use_port(server.port());
    run_pass();
    const std::string request = server.stop();
    const std::string body = request.substr(request.find("\r\n\r\n") + 4);
    EXPECT_EQ(request.substr(0, request.size() - body.size()),
              "POST //reports HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                  "\r\nAccept: */*\r\nContent-Type: application/json\r\nContent-Length: " +
                  std::to_string(body.size()) + "\r\n\r\n");
    expected["header"] = reporter::json_parse(body)["header"];
    EXPECT_EQ(body, reporter::json_compact(expected));
}

}  // namespace
