#include <csignal>

#include <algorithm>
#include <future>
#include <iterator>
#include <random>
#include <regex>

#include "file_lock.h"
#include "support/raw_peer.h"
#include "tool.h"

namespace {

using namespace test_support;

namespace fs = std::filesystem;

class kit : public tool_test {
protected:
    void SetUp() override {
        pass_test::SetUp();
        agent();
    }
    /// The log of one pass in a file.
    fs::path logged_pass() {
        child_process pass(agent());
        EXPECT_EQ(pass.wait(), 0);
        write_text(scratch_root() / "log", pass.output());
        return scratch_root() / "log";
    }
    static std::string unpacked(const fs::path& archive) {
        const fs::path into = archive.string() + ".d";
        fs::create_directory(into);
        EXPECT_EQ(child_process({"tar", "-xzf", archive, "-C", into}).wait(), 0);
        std::string text;
        for (const auto& entry : fs::recursive_directory_iterator(into)) {
            text += entry.is_regular_file() ? read_text(entry.path()) : "";
        }
        return text;
    }
};

TEST_F(kit, folds_a_log) {
    save(3);
    use_collector({"--answer", "* reports codes=200,400,503"});
    const Json::Value pass = json({"log", logged_pass()})[0];
    EXPECT_EQ(pass["pass"], true);
    EXPECT_EQ(pass["finished"], true);
    const Json::Value& chunk = pass["steps"][2]["chunks"][0];
    EXPECT_EQ(chunk["reports"], 3);
    EXPECT_EQ(chunk["codes"].getMemberNames(), strings({"200", "400", "503"}));
    EXPECT_EQ(chunk["requests"][0]["meaning"], "http:200, the server took the request");

    // What a ring has kept of it.
    const std::string whole = read_text(scratch_root() / "log");
    for (const auto& [first_kept, reports] :
         {std::pair("count reports before checking", 3), std::pair("try to do post request", 0)}) {
        write_text(scratch_root() / "log", whole.substr(whole.rfind('\n', whole.find(first_kept))));
        const Json::Value rest = json({"log", scratch_root() / "log"})[0];
        EXPECT_EQ(rest["pass"], true);
        EXPECT_EQ(rest["steps"][0]["chunks"][0]["reports"], reports);
        EXPECT_EQ(rest["steps"][0]["chunks"][0]["requests"], chunk["requests"]);
        EXPECT_EQ(rest["steps"][0]["chunks"][0]["codes"], chunk["codes"]);
    }

    const std::string begin = "11-24 21:05:5", tag = "+0900 P  7 T  8 ",
                      file = " TEV_REPORTER: f.cpp: f(1) > PROCESSOR :rss 1 ";
    write_text(scratch_root() / "log", std::string(1, '\0') + "\xff binary\n" + begin + "8.5" +
                                           tag + "I" + file + "processor pid:7\nanother's line\n" +
                                           begin + "9.75" + tag + "E" + file +
                                           "some_error: \033[2J\xc2\x9b\n");
    EXPECT_EQ(output({"log", scratch_root() / "log"}),
              "pass of process 7\n  start: 1.250 s, 0 pauses\n  its end is not in this log\n"
              "  error: some_error:  [2J  \n");
    output({"log", "/opt/data"}, 1);
    output({"log", data_dir() / "config" / "config.def"}, 1);
}

TEST_F(kit, runs_a_pass_and_stops_it_in_order) {
    file_lock other("open_only", "tev_reporter_db_file_lock");
    other.lock();
    child_process waiting(
        joined({"env", "LD_PRELOAD=" TEV_PRELOAD}, built_program(TEV_REPORT, {"run"})));
    waiting.wait_for("the pass waits until it is free");
    other.unlock();
    EXPECT_EQ(waiting.wait(), 0) << waiting.output();
    EXPECT_NE(waiting.output().find("nothing was due"), std::string::npos) << waiting.output();

    save(3);
    use_collector({"--answer", "1 reports codes=200,400,503"});
    agent();
    const Json::Value outcomes = json({"run"})["outcomes"];
    EXPECT_EQ(outcomes.size(), 3U);
    EXPECT_EQ(outcomes[0]["outcome"], "200, taken");
    EXPECT_EQ(stored(), 1);

    std::promise<void> asked;
    raw_peer silent({[&](peer_connection& client) {
        client.read_request();
        asked.set_value();
        client.read();
    }});
    use_port(silent.port());
    agent();
    child_process tool(
        joined({"env", "LD_PRELOAD=" TEV_PRELOAD}, built_program(TEV_REPORT, {"run"})));
    asked.get_future().wait();
    tool.signal(SIGINT);
    EXPECT_EQ(tool.wait(), 1) << tool.output();
    EXPECT_NE(tool.output().find("curl:"), std::string::npos) << tool.output();
    EXPECT_NE(tool.output().find("the pass was stopped"), std::string::npos) << tool.output();
    EXPECT_EQ(stored(), 1);
    set_vconf("db/menu/homedeck/homedatacontrol/defaultdisclaimeragree", 0);
    EXPECT_EQ(output({"run"}, 3), "Sending reports canceled. Waiting for user agreement\n");
    write_text(data_dir() / "config" / "config.def", "{");
    EXPECT_EQ(output({"run"}, 1).find("nothing was sent: see"), 0U);
}

TEST_F(kit, recovers_what_is_whole_of_a_damaged_store) {
    constexpr std::size_t page_size = 4096;
    std::mt19937 random(1);
    for (unsigned number = 1; number <= 30; ++number) {
        reporter::report report{7, 1, {}, number};
        std::generate_n(std::back_inserter(report.content), page_size / 2,
                        [&] { return static_cast<unsigned char>(random()); });
        save(report);
    }
    const auto query_number = [](const std::string& sql) { return std::stoul(query(sql)); };
    query(
        "WITH n(i) AS (SELECT value FROM generate_series(1, 8)) INSERT INTO contents SELECT "
        "id + 1000 * i, size, sha256, body FROM contents, n;"
        "WITH n(i) AS (SELECT value FROM generate_series(1, 8)) INSERT INTO reports SELECT "
        "id + 1000 * i, module, type, aggregationid, 1, first_time, last_time, day, like_key, "
        "like_key FROM reports, n;"
        "UPDATE accounts SET next_id = 1 + (SELECT max(id) FROM reports);"
        "PRAGMA writable_schema = ON; "
        "UPDATE sqlite_master SET sql = replace(sql, 'INTEGER NOT NULL', 'INTEGER')");
    const std::string middle = "(SELECT id FROM reports ORDER BY id LIMIT 1 OFFSET 135)";
    query("UPDATE accounts SET removed = NULL; UPDATE reports SET count = 2 WHERE id = " + middle +
          "; UPDATE reports SET type = NULL, count = NULL WHERE id = 1 + " + middle +
          "; UPDATE contents SET sha256 = x'00' WHERE id = 2 + " + middle);
    const fs::path store = data_dir() / "db_reports", broken = data_dir() / "db_reports.broken";
    std::string bytes = read_text(store);
    const auto damage = [&](const std::string& table, const std::string& order) {
        const std::string leaf = " FROM dbstat WHERE name = '" + table +
                                 "' AND pagetype = 'leaf' ORDER BY " + order + " LIMIT 1";
        bytes.replace((query_number("SELECT pageno" + leaf) - 1) * page_size, page_size, page_size,
                      'U');
        return query_number("SELECT ncell" + leaf);
    };
    // What is in both tables on a damaged page is hidden: the first reports and the last.
    const std::size_t hidden = damage("contents", "path") + damage("contents", "path DESC"),
                      rows = damage("reports", "path") + damage("reports", "path DESC"),
                      content = damage("contents", "path LIMIT 1 OFFSET 140 --");
    write_text(store, bytes);
    use_port(1);
    expect("E LUA: report store is set aside, kept as *", 0);

    write_text(data_dir() / "recovered", "1 3");  // cut short by a full disk
    const Json::Value first = json({"recover", broken});
    EXPECT_EQ(first["saved"].asUInt(), 270 - rows - content - 1);
    EXPECT_EQ(first["unreadable"].asUInt(), rows - hidden + content + 1);
    EXPECT_EQ(first["modules"]["7"]["occurrences"].asInt(), first["saved"].asInt() + 1);
    EXPECT_EQ(json({"recover", broken})["saved"], 0);
    fs::copy(broken, data_dir() / "moved");
    EXPECT_NE(output({"recover", data_dir() / "moved"}).find("nothing is left to save"),
              std::string::npos);
    damage("accounts", "path");
    write_text(data_dir() / "moved", bytes);
    EXPECT_NE(output({"recover", data_dir() / "moved"}, 1).find("does not tell which ids"),
              std::string::npos);
    use_collector();
    run_pass();
    EXPECT_EQ(received().size(), first["saved"].asUInt());
    EXPECT_EQ(stored(), 0);
    save(1);
    query("UPDATE accounts SET removed = 99");
    fs::copy(store, data_dir() / "moved", fs::copy_options::overwrite_existing);
    const std::string odd = output({"recover", data_dir() / "moved"});
    EXPECT_NE(odd.find("saved 1 report with 1 occurrence, not whole: 0\n"), std::string::npos)
        << odd;
    EXPECT_NE(output({"recover", store}, 1).find("is the present store"), std::string::npos);
    EXPECT_NE(output({"recover", data_dir() / "config" / "config.def"}, 1).find("not a database"),
              std::string::npos);
    write_text(data_dir() / "moved", read_text(store).replace(68, 4, 4, '\0'));  // another's id
    const std::string told = output({"recover", data_dir() / "moved"}, 1);
    EXPECT_NE(told.find("not a report store"), std::string::npos) << told;
    EXPECT_EQ(told.find("nothing is left"), std::string::npos) << told;
}

// Its commands run as they stand there. Numbers differ, and so do widths of columns.
TEST_F(kit, does_what_the_page_shows) {
    use_collector({"--answer", "* reports codes=200,503", "--answer", "2 reports codes=200"});
    const auto save_two = [&](unsigned char name) {
        save(reporter::report{412, 1, {name}, 0});
        save(reporter::report{412, 1, {name, name}, 0});
    };
    save_two('a');
    fs::rename(logged_pass(), scratch_root() / "pass.log");
    fs::copy(data_dir() / "db_reports", data_dir() / "db_reports.broken");
    run_pass();
    save_two('b');
    std::string tool = "cd " + scratch_root().string() + " && ln -sf " +
                       (data_dir() / "db_reports.broken").string() +
                       " && tev-report() { LD_PRELOAD=" TEV_PRELOAD;
    for (const std::string& word : built_program(TEV_REPORT)) {
        tool += " '" + word + "'";
    }
    const std::string page = read_text(source_dir() / "docs" / "field.md");
    const auto begin = page.find("```console\n", page.find("## A pass")) + 11;
    const std::string shown = page.substr(begin, page.find("```", begin) - begin);
    std::string seen;
    for (const std::string& line : lines_of(shown)) {
        if (line.compare(0, 2, "$ ") == 0) {
            child_process shell({"bash", "-c", tool + " \"$@\"; }; " + line.substr(2)});
            EXPECT_EQ(shell.wait(), 0) << shell.output();
            seen += line + "\n" + shell.output();
        }
    }
    const auto alike = [](const std::string& text) {
        const std::string numbers = std::regex_replace(text, std::regex("[0-9?][0-9.:-]*"), "0");
        return std::regex_replace(numbers, std::regex("\\s+"), " ");
    };
    EXPECT_EQ(alike(seen), alike(shown)) << seen;
}

TEST_F(kit, completes_and_documents_what_it_takes) {
    const auto completed = [](const std::string& words) {
        child_process bash(
            {"bash", "-c",
             ". " TEV_PAGES "/tev-report.bash; COMP_WORDS=(tev-report " + words +
                 "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tev_report; echo ${COMPREPLY[*]}"});
        EXPECT_EQ(bash.wait(), 0);
        return bash.output();
    };
    EXPECT_EQ(completed("--json acc"), "accounts\n");
    EXPECT_EQ(completed("bundle a.tar.gz --w"), "--with-log\n");
    const std::string help = output({"--help"}), manual = read_text(TEV_PAGES "/tev-report.8");
    for (const std::string& line : lines_of(help.substr(help.find("Subcommands:\n") + 13))) {
        if (line.compare(0, 2, "  ") == 0) {
            EXPECT_NE(manual.find(".SS " + line.substr(2, line.find(' ', 2) - 2) + "\n"),
                      std::string::npos)
                << line;
        }
    }
    EXPECT_NE(manual.find("\\-\\-with\\-log"), std::string::npos);
}

TEST_F(kit, bundles_nothing_that_identifies) {
    const strings secrets = {"ID \"4711\"/\xc3\xbc",
                             "Vendor & sons",
                             "T-MODEL",
                             "sentence that was reported",
                             "registered-0815",
                             "471100081500",
                             "CN=",
                             read_text(pki_dir() + "/client.pem").substr(28, 64),
                             lines_of(read_text(pki_dir() + "/client.key")).at(2)};
    set_system_info("value", "801", secrets[0]);
    set_system_info("platform", "http://tizen.org/system/manufacturer", secrets[1]);
    set_system_info("value", "199", secrets[2]);
    sender()["agent_registered_duid"] = secrets[4];
    config["DUID"] = Json::Int64{471100081500};
    config["vendor"] = std::string("\0 and more", 10);
    save(1, secrets[3]);
    use_collector();
    const fs::path log = logged_pass(), archive = scratch_root() / "device.tar.gz";
    std::string text = read_text(log);
    for (const std::string& secret : secrets) {
        text += lines_of(text).at(0) +
                " LUA: " + (secret == "CN=" || secret == secrets[3] ? "" : secret) + "\n";
    }
    write_text(log, text);
    EXPECT_NE(text.find(secrets[0]), std::string::npos);

    EXPECT_NE(output({"bundle", archive, "--with-log", log}).find("log "), std::string::npos);
    const std::string bundled = unpacked(archive);
    for (const std::string& secret : secrets) {
        EXPECT_EQ(bundled.find(secret), std::string::npos) << secret;
    }
    EXPECT_EQ(bundled.find(read_text(data_dir() / "bundle_key")), std::string::npos);
    for (const char* kept : {"\"group\" : \"server\"", "\"saved\" : 1", "max_body_size",
                             "processor pid:", "DUID : hidden-"}) {
        EXPECT_NE(bundled.find(kept), std::string::npos) << kept;
    }
    output({"bundle", archive}, 1);
    EXPECT_EQ(
        json({"bundle", scratch_root() / "second.tar.gz", "--offline"}).getMemberNames().size(),
        4U);
    const std::string hash =
        bundled.substr(bundled.find("agent_registered_duid\" : \"hidden-"), 60);
    EXPECT_NE(unpacked(scratch_root() / "second.tar.gz").find(hash), std::string::npos);

    NEEDS_MOUNTS()
    fs::remove(data_dir() / "bundle_key");
    const fs::path third = scratch_root() / "third.tar.gz";
    output({"bundle", third, "--offline"}, 0,
           {"bwrap", "--dev-bind", "/", "/", "--ro-bind", data_dir(), data_dir()});
    const std::string unlike = unpacked(third);
    EXPECT_EQ(unlike.find(hash), std::string::npos);
    EXPECT_NE(unlike.find("agent_registered_duid\" : \"hidden-"), std::string::npos);
}

}  // namespace
