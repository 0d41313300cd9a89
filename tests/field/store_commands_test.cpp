#include <cstdlib>
#include <ctime>
#include <fstream>

#include <list>
#include <regex>

#include "file_lock.h"
#include "tool.h"

namespace {

using namespace test_support;

class store_commands : public tool_test {
protected:
    void SetUp() override {
        pass_test::SetUp();
        agent();
    }

    /// The store and, where there is one, its journal.
    static std::string files() {
        const auto journal = data_dir() / "db_reports-journal";
        return read_text(data_dir() / "db_reports") +
               (std::filesystem::exists(journal) ? read_text(journal) : "");
    }
    /// The command, which must not change the store.
    static Json::Value look(const strings& arguments) {
        const std::string before = files();
        Json::Value document = json(arguments);
        EXPECT_EQ(files(), before);
        return document;
    }
    /// Ends in an error that says so.
    static void expect_error(const strings& arguments, const std::string& text, int status = 1) {
        EXPECT_NE(output(arguments, status).find(text), std::string::npos)
            << output(arguments, status);
    }
};

// Its commands run as they stand there, with the id and the clock that they show.
TEST_F(store_commands, do_what_the_page_shows) {
    save(1);
    query(
        "DELETE FROM reports; DELETE FROM contents; DELETE FROM batches;"
        "UPDATE accounts SET saved = 0, newest_batch = 0, next_id = 300000001,"
        "store = '0123456789abcdef0123456789abcdef'");
    std::string tool = "tev-report() { LD_PRELOAD=" TEV_PRELOAD " TZ=UTC TEV_CLOCK=1795600000";
    for (const std::string& word : built_program(TEV_REPORT)) {
        tool += " '" + word + "'";
    }
    tool += " \"$@\"; }; ";
    const std::string page = read_text(source_dir() / "docs" / "field.md");
    const auto begin = page.find("```console\n", page.find("## The store")) + 11;
    const std::string shown = page.substr(begin, page.find("```", begin) - begin);
    std::string seen;
    for (const std::string& line : lines_of(shown)) {
        if (line.compare(0, 2, "$ ") == 0) {
            child_process shell({"bash", "-c", tool + line.substr(2)});
            shell.wait();
            seen += line + "\n" + shell.output();
        }
    }
    EXPECT_EQ(seen, shown);
}

TEST_F(store_commands, foretell_a_pass) {
    config["processor"]["check_hash_min_size"] = 300;
    config["processor"]["max_age_days"] = 5;
    sender()["max_body_size"] = 1500;
    use_collector();
    agent();
    save(2, "too old ");
    query("UPDATE batches SET sealed = 1; UPDATE accounts SET listed_days = 9");
    save(3);
    std::string noise;
    for (unsigned int value = 1; noise.size() < 4000; value = value * 1664525 + 1) {
        noise.push_back(static_cast<char>(value >> 24));
    }
    // From a clock that was ahead: a pass moves them, and they are due.
    query("UPDATE batches SET sealed = 1");
    save(2, noise);
    save(4, noise.substr(0, 300));
    query(
        "UPDATE batches SET batch = batch + 90000 * 262144 WHERE first_id = "
        "(SELECT max(first_id) FROM batches)");
    // A second must not begin between the agent's look at the clock and the script's.
    setenv("TEV_CLOCK", std::to_string(std::time(nullptr) + 60).c_str(), 1);
    const Json::Value plan = look({"plan"});
    EXPECT_EQ(plan["dropped_reports"], 2);
    int sealed = 0;
    for (const Json::Value& report : look({"list"})) {
        sealed += report["sealed"].asInt();
    }
    EXPECT_EQ(sealed, 5);
    EXPECT_TRUE(look({"times"})[0]["sealed"].asBool());

    strings requests_wanted, sizes, ids;
    for (const Json::Value& request : plan["requests"]) {
        if (!request["asked_first"].empty()) {
            requests_wanted.push_back("/check_hashes " +
                                      std::to_string(request["asked_first"].size()) + " 200");
        }
        requests_wanted.push_back("/reports " + std::to_string(request["ids"].size()) + " 200");
        sizes.push_back("I request size: " + request["size"].asString());
        for (const Json::Value& id : request["ids"]) {
            ids.push_back(id.asString());
        }
    }
    EXPECT_EQ(ids.size(), 9U);
    strings command = agent();
    command[2] = "LD_PRELOAD=" TEV_PRELOAD;
    const pass done = end_of(child_process(command));
    unsetenv("TEV_CLOCK");
    EXPECT_EQ(requests(), requests_wanted);
    EXPECT_EQ(done.missing(sizes), "");
    EXPECT_EQ(done.count("I slow down"), plan["pauses"].asInt());
    strings taken;
    for (const Json::Value& report : received()) {
        const std::string uid = report["uid"].asString();
        taken.push_back(uid.substr(uid.find('-') + 1));
    }
    EXPECT_EQ(taken, ids);
    EXPECT_EQ(look({"plan"})["requests"].size(), 0U);
    set_vconf("db/menu/homedeck/homedatacontrol/defaultdisclaimeragree", 0);
    expect_error({"plan"}, "Nothing is sent: db/menu/homedeck", 3);
}

TEST_F(store_commands, look_at_more_than_one_answer_holds) {
    save(1);
    query(
        "WITH RECURSIVE more(n) AS (SELECT 1 UNION SELECT n + 1 FROM more WHERE n < 2500) "
        "INSERT INTO reports SELECT reports.id + n, 8, n % 3, 0, 2, 1, 1, 0, NULL, NULL "
        "FROM reports, more; INSERT INTO contents SELECT reports.id, 4, x'00', 'abcd' "
        "FROM reports WHERE module = 8");
    EXPECT_EQ(look({"list"}).size(), 2501U);
    EXPECT_EQ(look({"list", "--module", "8", "--type", "1", "--due"}).size(), 834U);
    EXPECT_EQ(look({"times", "--due"})[0]["occurrences"], 5001);
    const strings lines = lines_of(output({"export"}));
    EXPECT_EQ(lines.at(0), "26 calls of the store, each with its pause: 3.9 s at least");
    EXPECT_EQ(lines.size(), 2502U);
}

TEST_F(store_commands, go_through_the_six_functions_only_with_leave) {
    save(3);
    const auto script = data_dir() / "lua" / "processor_extension_V1.lua";
    const Json::Value listed = look({"list"}), planned = look({"plan"});
    write_text(script, std::regex_replace(read_text(script), std::regex("function inspect"),
                                          "function look"));
    const std::string before = files();
    for (const char* command : {"list", "times", "plan", "export"}) {
        expect_error({command}, "Add --yes", 2);
    }
    EXPECT_EQ(files(), before);
    const Json::Value planned_again = json({"plan", "--yes"});
    EXPECT_EQ(planned_again["requests"][0]["ids"], planned["requests"][0]["ids"]);
    EXPECT_EQ(planned_again["pauses"], planned["pauses"]);
    Json::Value listed_again = json({"list", "--yes"});
    for (Json::ArrayIndex row = 0; row < 3; ++row) {
        listed_again[row]["sealed"] = false;
    }
    EXPECT_EQ(listed_again, listed);
    expect_error({"show", "1", "--yes"}, "no report has the id 1: ");
    EXPECT_EQ(json({"remove", listed[0]["id"].asString(), "--yes"})[0]["occurrences"], 1);
}

TEST_F(store_commands, work_beside_a_pass_and_each_other) {
    use_collector();
    save(5);
    const std::string id = query("SELECT max(id) FROM reports");
    const strings saving = {"save", "--module", "1", "--type", "1", "/etc/passwd", "/etc/group"};
    std::list<child_process> tools;
    child_process sending(agent());
    int failures = 0;
    const auto wait_for_first = [&] {
        failures += tools.front().wait();
        tools.pop_front();
    };
    for (const strings& command : std::vector<strings>{
             saving, {"list"}, {"export"}, {"remove", id, "--yes"}, {"times"}, saving, {"plan"}}) {
        tools.emplace_back(built_program(TEV_REPORT, command));  // waits its turns in earnest
        if (tools.size() == 4) {  // More could have one wait for the lock longer than it does.
            wait_for_first();
        }
    }
    EXPECT_EQ(end_of(std::move(sending)).status, 0);
    while (!tools.empty()) {
        wait_for_first();
    }
    EXPECT_LE(failures, 1);  // the removal comes too late where the pass was first
    const Json::Value accounts = json({"accounts"});
    EXPECT_EQ(accounts["saved"], 9);
    EXPECT_EQ(accounts["removed"].asInt() + accounts["stored"].asInt(), 9);
}

TEST_F(store_commands, refuse_what_cannot_be_done) {
    EXPECT_EQ(json({"list"}).size(), 0U);
    expect_error({"show", "1"}, "no report has the id 1: ");
    save(1);
    const std::string id = query("SELECT id FROM reports");
    expect_error({"remove", id}, "nothing was removed");  // there is nobody to answer
    expect_error({"remove", "1", id, "--yes"}, "no report has the id 1: ");
    EXPECT_EQ(stored(), 0);
    expect_error({"show", "4294967296"}, "ID", 2);
    expect_error({"save", "--module", "40000", "--type", "1"}, "--module", 2);
    expect_error({"save", "--module", "1", "--type", "1", "/none", "/etc"}, "/etc cannot be read");
    expect_error({"save", "--module", "1", "--type", "1", "/dev/zero"}, "more than 64.0 MiB");
    save(1);
    query("UPDATE contents SET body = 'eJwr'");
    expect_error({"show", query("SELECT id FROM reports"), "--content"}, "damaged");
    {
        file_lock held("open_only", "tev_reporter_db_file_lock");
        held.lock();
        expect_error({"list"}, "is held by process ");
        expect_error({"save", "--module", "1", "--type", "1", "/dev/null"}, "is held by process ");
        held.unlock();
    }
    write_text(data_dir() / "db_reports", std::string(8192, '#'));
    expect_error({"list"}, "is no SQLite database: see what `tev-report doctor` says");
}

}  // namespace
