#include <csignal>
#include <fstream>

#include "base64.h"
#include "compression.h"
#include "storage/store_test.h"
#include "support/agent_run.h"
#include "support/child_process.h"
#include "support/children.h"
#include "support/error_of.h"
#include "support/full_disk.h"

using namespace test_support;
using ids = std::vector<unsigned>;

// Each call is made as by a process of its own. At the end the file is sound and the accounts
// balance.
class storage_script : public store_test {
protected:
    void TearDown() override {
        times();
        EXPECT_EQ(query("SELECT saved = removed + dropped_space + dropped_age + total(count) FROM "
                        "accounts LEFT JOIN reports; PRAGMA integrity_check"),
                  "1\nok");
    }
    unsigned save(const std::string& bytes, unsigned like = 0) {
        return unsigned(store()->save_report({1, 1, {bytes.begin(), bytes.end()}, like}));
    }
    ids fill(unsigned count, std::size_t size) {
        ids saved;
        for (std::string bytes(size, 0); saved.size() < count;) {
            std::generate(bytes.begin(), bytes.end(), std::ref(random));
            saved.push_back(save(bytes, unsigned(saved.size())));
        }
        return saved;
    }
    std::vector<long> times() { return store()->get_all_dispatch_times(); }
    ids list(long time = NEXT) { return store()->get_ids_by_dispatch_time(time); }
    auto read(unsigned id) { return reporter::parse_config(store()->get_report_as_json(id)); }
    // As damage to a row may bring one about.
    static void allow_null() {
        query(
            "PRAGMA writable_schema = ON; "
            "UPDATE sqlite_master SET sql = replace(sql, 'INTEGER NOT NULL', 'INTEGER')");
    }
    unsigned remove(unsigned id) { return store()->remove_report(id).at(0).second; }
    static constexpr long NEXT = NOON + 14 * HOUR;
};

TEST_F(storage_script, keeps_the_schedule) {
    // The clocks go back an hour in the night that follows.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    const auto expect = [&](const std::string& text, long delay, std::size_t bad = 0) {
        config["processor"]["dispatching_time"] = text;
        const unsigned id = save("x");
        EXPECT_EQ(times(), std::vector<long>{NOON + delay}) << text;
        EXPECT_EQ(recorder.count("E LUA: bad dispatching time, 03:00 is used instead: " + text),
                  bad);
        remove(id);
    };
    expect("0", 0);
    expect("04:00", 17 * HOUR);
    expect("13:00,11:59,12:30", HOUR / 2);
    expect("12:00", 25 * HOUR);
    expect("23:59", 12 * HOUR - 60);
    for (const char* text : {"", "24:00", "12:60", "3:00", "12:01,", "-5", "1.5", "2147483648"}) {
        expect(text, 16 * HOUR, 2);
    }
    config["processor"]["dispatching_spread"] = 1000;
    expect("12:00", 145);
    set_system_info("value", "801", "D1");
    expect("12:00", 501);
    expect("3600", 501);
    // As a hand may write it: with comments, quotes in odd places and no end of line.
    const char* by_hand = R"(
CONFIG = '{/*"*/"processor": //{\n {"dispatching_spread": 400}, "a": "\\"//"}'
)";
    script = by_hand + script;
    expect("12:00", 101);
}

TEST_F(storage_script, marks_a_clock_that_was_never_set) {
    now = 1790812800;  // The first release.
    EXPECT_FALSE(read(save("set")).isMember("clock"));
    --now;
    EXPECT_EQ(read(save("not set"))["clock"], "untrusted");
}

TEST_F(storage_script, writes_little) {
    save("first");
    // A save writes the header, the accounts, a report and its content, most of them twice.
    syncs = 0, written = 0;
    save("durably");
    EXPECT_EQ(syncs, 5);
    EXPECT_LT(written, 9U * 4096);
    for (const int expected : {10, 0}) {
        syncs = 0;
        times();
        list();
        EXPECT_EQ(syncs, expected) << "the day and the seal, and nothing when looked at again";
    }
}

TEST_F(storage_script, says_what_it_drops) {
    const std::string too_small = "W LUA: db_max_size is too small, taken as 262144";
    for (const unsigned enough : {0U, 262144U}) {
        config["db_max_size"] = enough;
        remove(save("x"));
        EXPECT_EQ(recorder.count(too_small), 0U) << enough;
    }
    config["db_max_size"] = 1;  // Taken as 64 pages of 4 KiB.
    EXPECT_EQ(fill(1, 262144), ids{0});
    fill(1, 100000);
    fill(1, 100000);
    config["processor"]["max_age_days"] = 1;
    for (int day = 0; day < 4; ++day, now += DAY) {
        times();
        list();
    }
    for (const char* line : {"refused, too large for the store: 262144 bytes",
                             "dropped for space: 1 reports, 1 occurrences",
                             "dropped for age: 1 reports, 1 occurrences"}) {
        const std::string text = std::string("W LUA: ") + (*line == 'r' ? "report " : "") + line;
        EXPECT_EQ(recorder.count(text), 1U) << text;
    }
    EXPECT_NE(recorder.count(too_small), 0U);
}

TEST_F(storage_script, sets_damage_aside_once) {
    fill(30, 1000);
    const std::string whole = read_text(file), malformed = "database disk image is malformed";
    const std::pair<std::string, std::string> cases[] = {
        {whole.substr(0, 5000), malformed},
        {whole.substr(0, 1), ""},
        {whole.substr(0, 16), "file is not a database"},
        {whole.substr(0, 511), malformed},
        {whole.substr(0, whole.size() - 4096), malformed},
        {std::string(whole).replace(4 * 4096, 4096, 4096, 'x'), malformed},
        {std::string(20000, 'x'), "file is not a database"},
        {"", ""}};
    std::string kept = ", kept as " + file + ".broken: ";
    for (const auto& [damaged, reason] : cases) {
        write_text(file, damaged);
        const unsigned id = save("goes on");
        EXPECT_EQ(list(), ids{id});
        EXPECT_EQ(recorder.count("E LUA: report store is set aside" + kept + reason),
                  reason.empty() ? 0U : 1U)
            << reason;
        EXPECT_EQ(query("SELECT set_aside FROM accounts"), reason.empty() ? "0" : "1");
        EXPECT_TRUE(read_text(file + ".broken") == cases[0].first) << "another one is kept";
        kept = ", not kept: ";
        recorder.clear();
    }
    std::filesystem::remove(file);
    EXPECT_NE(save("beside the journal of another"), 0U);
}

TEST_F(storage_script, keeps_each_store_that_is_not_its_own) {
    for (int write = 1; write < 8; ++write) {
        EXPECT_FALSE(in_children(1, [&] {
            last_write = write;
            return save("while the store is made") != 0;
        }));
        save("goes on");
        EXPECT_FALSE(std::filesystem::exists(file + ".foreign.1")) << write;
        std::filesystem::remove(file);
    }
    write_text(file + ".broken", "an earlier one");
    const std::pair<std::string, std::string> changes[] = {
        {"CREATE TABLE reports(id INTEGER PRIMARY KEY)", "not a report store"},
        {"ALTER TABLE reports DROP COLUMN day", "table reports has no column named day"},
        {"ALTER TABLE accounts DROP COLUMN listed_days", "no such column: listed_days"},
        {"ALTER TABLE accounts ADD COLUMN batch", "ambiguous column name: batch"},
        {"PRAGMA user_version = 0", "not a report store"},
        {"DROP TABLE alike", "no such table: alike"}};
    int number = 0;
    for (const auto& [change, reason] : changes) {
        query("PRAGMA journal_mode = PERSIST; " + change);
        const std::string foreign = read_text(file),
                          kept = file + ".foreign." + std::to_string(++number);
        const unsigned id = save("goes on", 1);
        EXPECT_EQ(list(), ids{id});
        EXPECT_TRUE(read_text(kept) == foreign) << change;
        EXPECT_TRUE(std::filesystem::exists(kept + "-journal")) << change;
        EXPECT_EQ(
            recorder.count("E LUA: report store is set aside, kept as " + kept + ": " + reason),
            1U);
    }
    EXPECT_EQ(read_text(file + ".broken"), "an earlier one");
}

TEST_F(storage_script, goes_on_with_its_own_store) {
    const ids saved{save("first", 5), save("joined", 5), save("second")};
    query(
        "CREATE TABLE notes(x); CREATE VIEW recent AS SELECT * FROM reports; "
        "ALTER TABLE contents ADD COLUMN module; DELETE FROM accounts");
    EXPECT_EQ(read(saved[0])["module"], 1);
    ASSERT_EQ(remove(saved[2]), 1U);
    const unsigned later = save("after the loss", 6);
    EXPECT_GT(later, saved[2]);
    EXPECT_EQ(list(), (ids{saved[0], later}));
    EXPECT_EQ(query("SELECT saved, removed, joined FROM accounts"), "4|1|0");
    allow_null();
    query("UPDATE accounts SET latest_day = NULL");
    EXPECT_GT(save("after the loss of one"), later);
    EXPECT_EQ(query("SELECT saved, removed, joined FROM accounts"), "4|0|0");

    const auto kept = store(false);  // As by a program that goes on over an update.
    kept->get_all_dispatch_times();
    query("ALTER TABLE reports RENAME COLUMN like_key TO other; PRAGMA user_version = 7");
    const std::string newer = "report store: of version 7, newer than this script's 1";
    EXPECT_EQ(error_of([&] { kept->save_report({1, 1, {'x'}}); }), newer);
    const std::string sound = read_text(file);
    EXPECT_EQ(error_of([&] { save("x"); }), newer);
    EXPECT_TRUE(read_text(file) == sound);

    query("ALTER TABLE reports RENAME COLUMN other TO like_key; PRAGMA user_version = 1");
    const std::string last = "body BLOB NOT NULL)]],\n  },\n";
    script.replace(script.find(last) + last.size(), 0,
                   "{ 'ALTER TABLE reports ADD COLUMN kept INTEGER DEFAULT 8' },\n");
    save("by the next version");
    EXPECT_EQ(query("PRAGMA user_version; SELECT total(kept) FROM reports"), "2\n32.0");
}

TEST_F(storage_script, leaves_a_file_that_may_serve_again) {
    std::string sound;
    const auto fails = [&](const std::string& message) {
        EXPECT_EQ(error_of([&] { fill(1, 100000); }), "report store: " + message);
        EXPECT_TRUE(std::filesystem::is_directory(file) || read_text(file) == sound) << message;
    };
    std::filesystem::create_directory(file);
    fails("unable to open database file");
    std::filesystem::remove(file);
    fill(5, 1000);
    sound = read_text(file);
    NEEDS_MOUNTS()
    child_process source(joined({"bwrap", "--dev-bind", "/", "/", "--ro-bind", data_dir(),
                                 data_dir(), "sh", "-c", "echo '{\"size\": 1}' | \"$@\"", "sh"},
                                built_program(TEV_REPORT_SOURCE)));
    source.wait_for("line 1: report store: attempt to write a readonly database");
    const full_disk limit(sound.size());
    fails("disk I/O error");
    child_process peer({"sqlite3", file, "BEGIN EXCLUSIVE", ".shell echo held", ".read /dev/ptmx"});
    peer.wait_for("held");
    fails("database is locked");
    peer.signal(SIGKILL);
    peer.wait();
    script.insert(script.find("return database"),
                  "database.row('PRAGMA hard_heap_limit = 200000') ");
    fails("out of memory");
}

TEST_F(storage_script, makes_do_without_a_free_byte) {
    NEEDS_MOUNTS()
    const std::string size = "4194304", self = std::filesystem::read_symlink("/proc/self/exe");
    if (std::filesystem::space(data_dir()).capacity != std::stoul(size)) {
        child_process again(
            joined({"bwrap", "--dev-bind", "/", "/", "--size", size, "--tmpfs", "/opt/data"},
                   built_program(self, {"--gtest_filter=*free_byte"})));
        EXPECT_EQ(again.wait(), 0) << again.output();
        return;
    }
    const std::string full = "W LUA: report refused, report store: database or disk is full";
    for (const auto& [count, content] : {std::pair(1U, 40000U), {24, 40000}, {150, 100}}) {
        const ids saved = fill(count, content);
        const std::string sound = read_text(file);
        std::ofstream filler(data_dir() / "filler");
        for (; filler; filler << std::string(4096, 'x') << std::flush) {
        }
        EXPECT_EQ((ids{save(sound), unsigned(recorder.count(full))}), (ids{0, 1}));
        EXPECT_EQ(read(saved[0])["size"].asUInt(), content);
        EXPECT_TRUE(read_text(file) == sound);
        EXPECT_EQ(list(), saved);
        for (const unsigned id : saved) {
            EXPECT_EQ(remove(id), 1U) << count;
        }
        EXPECT_LE(read_text(file).size(), 100000U) << "it does not shrink";
        std::filesystem::remove(data_dir() / "filler");
        EXPECT_EQ(remove(save("there is room again")), 1U);
        recorder.clear();
    }
}

TEST_F(storage_script, makes_the_room_again_that_its_journal_has_lost) {
    const ids saved = fill(40, 700);
    std::filesystem::remove(file + "-journal");
    const auto size = std::filesystem::file_size(file);
    for (const long left : {20000, 340000, -1, 0}) {
        disk_left = left;
        times();
        EXPECT_LE(std::filesystem::file_size(file), size) << "what makes the room stays: " << left;
    }
    for (const unsigned id : saved) {
        EXPECT_EQ(remove(id), 1U);
    }
    disk_left = -1;
}

TEST_F(storage_script, gives_any_content_back) {
    std::vector<std::string> contents{"",
                                      {"\0\"\\\n\0", 5},
                                      "\xff\xfe\xc0\x80",
                                      std::string(1 << 20, 'x'),
                                      R"({"caller": "c", "filehash": "no JSON", "x": NaN})"};
    std::generate_n(std::back_inserter(contents.emplace_back()), 1 << 20, std::ref(random));
    for (const unsigned depth : {998U, 1001U, 500000U}) {
        contents.push_back(R"({"caller": "c", "filehash": "f", "x": )" + std::string(depth, '[') +
                           std::string(depth, ']') + "}");
    }
    const unsigned damaged = fill(1, 1000).at(0);
    for (const std::string& content : contents) {
        EXPECT_NE(save(content), 0U);
    }
    EXPECT_EQ(query("SELECT count(*) FROM alike"), "1");
    std::string bytes = read_text(file);
    const std::size_t at = bytes.find(read(damaged)["content"].asString().substr(700, 8));
    write_text(file, bytes.replace(at, 8, {"\"\\\0\xff{}'\n", 8}));

    allow_null();
    const auto damage = [&](const std::string& number) {
        const std::string there = " = " + number + " WHERE id = " + std::to_string(damaged) + ";";
        query("UPDATE contents SET size" + there);
        for (const char* column :
             {"module", "type", "aggregationid", "count", "first_time", "last_time"}) {
            query("UPDATE reports SET " + (column + there));
        }
        const std::string text = store()->get_report_as_json(damaged);
        return text.substr(0, text.find(",\"SHA256\""));
    };
    EXPECT_EQ(damage("9e999"),
              R"({"module":32767,"type":32767,"aggregationid":4294967295,"count":2147483647,)"
              R"("size":9007199254740992,"first_time":9007199254740992,)"
              R"("last_time":9007199254740992)");
    for (const char* number : {"-9e999", "NULL"}) {
        EXPECT_EQ(damage(number),
                  R"({"module":-32768,"type":-32768,"aggregationid":0,"count":1,"size":0,)"
                  R"("first_time":-9007199254740992,"last_time":-9007199254740992)");
    }
    query("UPDATE reports SET like_key = 'x', file_key = x'00ff' WHERE id = " +
          std::to_string(damaged));

    auto cursor = store()->cursor(NEXT);
    ASSERT_TRUE(cursor.has_next());
    EXPECT_EQ(cursor.to_json()["count"], 1);
    cursor.remove();
    for (const std::string& content : contents) {
        ASSERT_TRUE(cursor.has_next());
        const std::string text = cursor.to_json()["content"].asString();
        const std::string stream = reporter::base64_decode(text.data(), unsigned(text.size()));
        EXPECT_TRUE(reporter::inflate(stream.data(), unsigned(stream.size())) == content);
        cursor.remove();
    }
    EXPECT_EQ(query("SELECT saved, removed, (SELECT count(*) FROM alike) FROM accounts"),
              "10|10|0");
}

TEST_F(storage_script, comes_through_a_power_cut_at_any_write) {
    const ids neighbours = fill(40, 700);
    const unsigned large = fill(1, 40000).at(0);
    const auto bodies = [&] {
        return query("SELECT group_concat(body) FROM contents WHERE id < " + std::to_string(large));
    };
    const std::string whole = read_text(file), before = bodies();
    bool fails = true;
    int write = 1;
    for (; fails && !HasFailure(); ++write, TearDown()) {
        write_text(file, whole);
        ASSERT_LT(write, 400) << "the work never ends well";
        fails = !in_children(1, [&] {
            last_write = write;
            const ids like{save("x", 99), save("x", 99), remove(large)};
            return list().back() == like[0];
        });
        times();
        EXPECT_EQ(bodies(), before) << "committed pages are gone";
    }
    EXPECT_GT(write, 30);
    EXPECT_EQ(query("SELECT saved, removed, set_aside FROM accounts"), "43|1|0");
}
