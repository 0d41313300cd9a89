#include <sys/mman.h>
#include <sys/uio.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <limits>
#include <random>

#include "base64.h"
#include "compression.h"
#include "storage/reports_storage.h"
#include "support/agent_run.h"
#include "support/child_process.h"
#include "support/children.h"
#include "support/error_of.h"
#include "support/full_disk.h"

using namespace test_support;
using ids = std::vector<unsigned>;

// A statement that would read a whole table or sort fails, however little is stored.
const std::string NO_SCANS = R"(
local open = sqlite3.open
sqlite3 = { open = function(...)
    local database, plan = open(...), ""
    local execute = database.execute
    function database.execute(sql, ...)
        if string.find(sql, "^[DISU]") and not string.find(sql, "LIMIT 0") then
            database.each(function(row) plan = plan .. row.detail end, "EXPLAIN QUERY PLAN " .. sql, ...)
        end
        if string.find(plan, "SCAN %l") or string.find(plan, "TEMP") then error(plan, 0) end
        return execute(sql, ...)
    end
    return database
end }
)";

// The write to SQLite's files, counted from 1, at which the power fails: the block of the medium is
// lost.
int last_write = 0;
std::size_t written = 0;

extern "C" ssize_t pwrite64(int file, const void* bytes, std::size_t size, off64_t at) {
    static char lost[4096];
    const bool fails = --last_write == 0;
    iovec part{const_cast<void*>(bytes), size};
    if (fails) {
        std::fill(std::begin(lost), std::end(lost), '\xff');
        part = {lost, sizeof lost};
        at -= at % 4096;
    }
    written += size;
    return pwritev64(file, &part, 1, at) + (fails ? raise(SIGKILL) : 0);
}

// What it would cost is counted instead of waited for.
int syncs = 0;
extern "C" int fdatasync(int) {
    return ++syncs * 0;
}
extern "C" int fsync(int) {
    return ++syncs * 0;
}

// Each call is that of a process of its own. At the end the file is sound and the accounts balance.
class storage_script : public device_test {
protected:
    storage_script() {
        install_plugin();
        script = NO_SCANS + read_text(data_dir() / "lua/processor_extension_V1.lua");
    }
    void TearDown() override {
        times();
        EXPECT_EQ(query("SELECT saved = removed + dropped_space + dropped_age + total(count) FROM "
                        "accounts LEFT JOIN reports; PRAGMA integrity_check"),
                  "1\nok");
    }
    auto store() {
        const std::string clock = "function get_timestamp() return " + std::to_string(now) + " end";
        return reporter::reports_storage::make({{config, {}}, clock + script}, true);
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
    unsigned remove(unsigned id) { return store()->remove_report(id).at(0).second; }
    static constexpr long HOUR = 3600, DAY = 24 * HOUR, NOON = 1792836000, NEXT = NOON + 14 * HOUR;
    static inline const std::string file = data_dir() / "db_reports";
    std::string script;
    Json::Value config = reporter::parse_config(R"({"processor": {"dispatching_time": "86400"}})");
    long now = NOON;
    std::mt19937 random;
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
    for (const char* text : {"", "25:00", "3:00", "12:01,", "-5", "1.5", "2147483648"}) {
        expect(text, 16 * HOUR, 2);
    }
    config["processor"]["dispatching_spread"] = 1000;
    expect("12:00", 145);
    set_system_info("value", "801", "D1");
    expect("12:00", 501);
}

TEST_F(storage_script, comes_through_wrong_clocks) {
    now = 5000;
    const unsigned behind = save("before the clock was set");
    // A 32-bit device counts no further than to 2038.
    const long far =
        long(std::min(NOON + 30000LL * DAY, (long long)std::numeric_limits<long>::max()));
    now = far;
    const unsigned ahead = save("far ahead");
    const long beyond = times().back();
    EXPECT_GE(beyond, far);
    now = 6000;
    EXPECT_EQ(times(), (std::vector<long>{DAY, beyond})) << "a clock that was never set moves it";
    now = NOON;
    EXPECT_EQ(times(), (std::vector<long>{DAY, NEXT}));
    const unsigned regular = save("under the right clock");
    EXPECT_EQ((std::vector<ids>{list(DAY), list()}),
              (std::vector<ids>{{behind}, {ahead, regular}}));
    now -= HOUR;
    EXPECT_EQ(times(), (std::vector<long>{DAY, NEXT})) << "moved again";
    EXPECT_EQ(read(behind)["clock"], "untrusted");
    EXPECT_FALSE(read(ahead).isMember("clock"));
}

TEST_F(storage_script, joins_and_seals) {
    reporter::ext_aggregation_data data{"c", "f"};
    const auto count_again = [&] { return unsigned(store()->ext_aggregation(data)); };
    const unsigned id = save("first", 4294967295);
    EXPECT_EQ((ids{save("joins", 4294967295), save("other", 1), count_again(),
                   save(R"({"caller": "c", "filehash": "f"})")}),
              (ids{id, id + 1, 0, id + 2}));
    now += 60;
    EXPECT_EQ(count_again(), 2U);
    EXPECT_EQ(list(), (ids{id, id + 1, id + 2}));
    EXPECT_EQ((ids{count_again(), save("after the seal", 4294967295)}), (ids{0, id + 3}));
    const Json::Value report = read(id + 2);
    EXPECT_EQ(read(id + 2), report);
    EXPECT_NE(read(id)["uid"], report["uid"]);
    EXPECT_EQ(report["last_time"].asInt() - report["first_time"].asInt(), 60);
    EXPECT_EQ((ids{remove(id), remove(id), remove(id + 1), remove(id + 2), remove(id + 3)}),
              (ids{2, 0, 1, 2, 1}));
    EXPECT_EQ(error_of([&] { read(id); }), "unknown report id: " + std::to_string(id));
    EXPECT_EQ(save("after all have gone"), id + 4);
    EXPECT_EQ(query("SELECT saved, joined, removed FROM accounts"), "7|2|6");
    // A save writes the header, the accounts, the batch, report and content, most of them twice.
    syncs = 0, written = 0;
    save("durably");
    EXPECT_EQ(syncs, 5);
    EXPECT_LT(written, 9U * 4096);
}

TEST_F(storage_script, bounds_its_size) {
    config["db_max_size"] = 1 << 20;
    const ids saved = fill(150, 8000);
    const std::size_t full = read_text(file).size();
    EXPECT_LE(full, 1U << 20);
    EXPECT_GT(full, 900000U);
    EXPECT_EQ(fill(1, 1 << 20), ids{0});
    EXPECT_EQ(recorder.count("W LUA: report refused, too large for the store: 1048576 bytes"), 1U);
    EXPECT_EQ(list(), ids(saved.end() - long(list().size()), saved.end())) << "not the oldest went";
    // The smallest bound is 64 pages of 4 KiB.
    config["db_max_size"] = 1;
    for (std::size_t size = full, calls = 0; size > 64 * 4096; ++calls) {
        const std::size_t before = size;
        EXPECT_NE(save("makes room under the new bound"), 0U);
        size = read_text(file).size();
        ASSERT_LT(size, before);
        EXPECT_GE(size + 2 * 17 * 4096, before) << "more than a call may give back";
        ASSERT_LT(calls, 10U);
    }
    EXPECT_NE(recorder.count("W LUA: db_max_size is too small, taken as 262144"), 0U);
    EXPECT_EQ(query("SELECT refused FROM accounts"), "1");
}

TEST_F(storage_script, counts_ages) {
    config["processor"]["max_age_days"] = 2;
    const unsigned tried = save("given to a sender in each pass");
    now += DAY;
    times();
    save("given to none, as its time never comes");
    // A clock that falls back or leaps counts a day at most, and none below the latest.
    const std::pair<long, std::size_t> listings[] = {{5000, 2},           {NOON + DAY, 2},
                                                     {NOON + 2 * DAY, 2}, {NOON + 90 * DAY, 2},
                                                     {NOON + 3 * DAY, 1}, {NOON + 99 * DAY, 1}};
    for (const auto& [clock, count] : listings) {
        now = clock;
        list(NEXT);
        EXPECT_EQ(times().size(), count) << clock;
    }
    EXPECT_EQ(remove(tried), 0U);
    EXPECT_EQ(recorder.count("W LUA: dropped for age: 1 reports, 1 occurrences"), 1U);
    EXPECT_EQ(query("SELECT saved, dropped_age, latest_day FROM accounts"), "2|1|20849");
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
    write_text(file + ".broken", "an earlier one");
    const std::pair<std::string, std::string> changes[] = {
        {"CREATE TABLE reports(id INTEGER PRIMARY KEY)", "another application's"},
        {"ALTER TABLE reports DROP COLUMN day", "no such column: day"},
        {"DROP TABLE alike", "no such table: alike"}};
    int number = 0;
    for (const auto& [change, reason] : changes) {
        query(change);
        const std::string foreign = read_text(file),
                          kept = file + ".foreign." + std::to_string(++number);
        const unsigned id = save("goes on");
        EXPECT_EQ(list(), ids{id});
        EXPECT_TRUE(read_text(kept) == foreign) << change;
        EXPECT_EQ(recorder.count("E LUA: report store is set aside, kept as " + kept +
                                 ": not a report store: " + reason),
                  1U);
    }
    EXPECT_EQ(read_text(file + ".broken"), "an earlier one");
}

TEST_F(storage_script, goes_on_with_its_own_store) {
    query("CREATE TABLE notes(x); CREATE VIEW recent AS SELECT * FROM reports");
    const ids saved{save("first", 5), save("joined", 5), save("second")};
    query("DELETE FROM accounts");
    ASSERT_EQ(remove(saved[2]), 1U);
    const unsigned later = save("after the loss", 6);
    EXPECT_GT(later, saved[2]);
    EXPECT_EQ(list(), (ids{saved[0], later}));
    EXPECT_EQ(query("SELECT saved, removed, joined FROM accounts"), "4|1|0");

    query("PRAGMA user_version = 7");
    const std::string sound = read_text(file);
    EXPECT_EQ(error_of([&] { save("x"); }),
              "report store: of version 7, newer than this script's 1");
    EXPECT_TRUE(read_text(file) == sound);

    query("PRAGMA user_version = 1");
    const std::string last =
        "alike(key INTEGER PRIMARY KEY, id INTEGER NOT NULL, batch INTEGER NOT NULL)]],\n  },\n";
    script.replace(script.find(last) + last.size(), 0,
                   "{ 'ALTER TABLE reports ADD COLUMN kept INTEGER DEFAULT 8' },\n");
    save("by the next version");
    EXPECT_EQ(query("PRAGMA user_version; SELECT total(kept) FROM reports"), "2\n24.0");
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

// Runs itself again, on a small disk.
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
    for (const auto& [count, content] :
         {std::pair(1U, 40000U), {8, 40000}, {24, 40000}, {300, 100}}) {
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

TEST_F(storage_script, gives_any_content_back) {
    std::vector<std::string> contents{
        "", {"\0\"\\\n\0", 5}, "\xff\xfe\xc0\x80", std::string(1 << 20, 'x')};
    std::generate_n(std::back_inserter(contents.emplace_back()), 1 << 20, std::ref(random));
    for (const unsigned depth : {998U, 1001U, 500000U}) {
        contents.push_back(R"({"caller": "c", "filehash": "f", "x": )" + std::string(depth, '[') +
                           std::string(depth, ']') + "}");
    }
    const unsigned damaged = fill(1, 1000).at(0);
    for (const std::string& content : contents) {
        EXPECT_NE(save(content), 0U);
    }
    std::string bytes = read_text(file);
    const std::size_t at = bytes.find(read(damaged)["content"].asString().substr(700, 8));
    write_text(file, bytes.replace(at, 8, {"\"\\\0\xff{}'\n", 8}));

    auto cursor = store()->cursor(NEXT);
    ASSERT_TRUE(cursor.has_next());
    EXPECT_EQ(cursor.to_json()["size"], 1000);
    cursor.remove();
    for (const std::string& content : contents) {
        ASSERT_TRUE(cursor.has_next());
        const std::string text = cursor.to_json()["content"].asString();
        const std::string stream = reporter::base64_decode(text.data(), unsigned(text.size()));
        EXPECT_TRUE(reporter::inflate(stream.data(), unsigned(stream.size())) == content);
        cursor.remove();
    }
    EXPECT_EQ(query("SELECT saved, removed, (SELECT count(*) FROM alike) FROM accounts"), "9|9|0");
}

TEST_F(storage_script, asks_by_hash_from_a_size_on) {
    for (const auto& [least, asks] : {std::pair(0, false), {99, true}, {100, true}, {101, false}}) {
        config["processor"]["check_hash_min_size"] = least;
        EXPECT_EQ(read(fill(1, 100).at(0)).isMember("check_hash"), asks) << least;
    }
}

TEST_F(storage_script, keeps_its_accounts_among_twenty_processes) {
    void* shared = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto& counted = *new (shared) std::atomic<unsigned>(0);
    reporter::ext_aggregation_data names{"c", "f"};
    const auto work = [&](int write) {
        const unsigned own = save(std::to_string(getpid()));
        const bool saved = save("joins", 1) && save(R"({"caller": "c", "filehash": "f"})");
        counted += store()->ext_aggregation(names) != 0 ? 1 : 0;
        last_write = write;
        const bool outlived = in_children(1, [&]() noexcept { return save("killed") != 0; });
        last_write = 0;
        return saved && !outlived && times() == std::vector<long>{NEXT} && !list().empty() &&
               read(own)["count"] == 1 && remove(own) == 1;
    };
    EXPECT_TRUE(in_children(20, [&]() noexcept { return work(2) && work(12); }));
    EXPECT_EQ(query("SELECT saved, removed, set_aside FROM accounts"),
              std::to_string(120 + counted) + "|40|0");
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
