#include "common.h"
#include "journal.h"
#include "stats.h"
#include "stop_deadline.h"
#include "support/children.h"
#include "support/full_disk.h"

using namespace test_support;
using reporter::json_parse;

constexpr std::size_t stamp_size = 20;

class records : public device_test {
protected:
    Json::Value counters(const std::string& event) const {
        return json_parse(read_text(stats_path))[event];
    }

    const std::string journal_path = data_dir() / "journal";
    const std::string stats_path = data_dir() / "stats";
};

TEST_F(records, of_a_run_begin_empty_and_keep_the_last_ten_lines) {
    write_text(journal_path, "of an earlier run\n");
    EXPECT_EQ(reporter::journal(journal_path, 10, 100).get_path(), journal_path);
    EXPECT_EQ(read_text(journal_path), "");
    for (int i = 1; i <= 300; ++i) {
        EXPECT_TRUE(reporter::get_journal().add("s", std::to_string(i) + std::string(100, '\n')));
    }
    const std::string text = read_text(journal_path);
    EXPECT_EQ(text.size(), 10U * 101);
    EXPECT_EQ(text.substr(stamp_size, 8), "::s::291");
    std::filesystem::remove(journal_path);
    EXPECT_FALSE(reporter::get_journal().add("s", "text"));
}

TEST_F(records, count_on_from_whatever_the_file_holds) {
    const std::string start = R"({"first_start_at": "then", "sent": )";
    const std::tuple<std::string, const char*, bool> files[] = {
        {start + R"({"-": 1.5, "7": 2}})", R"({"-": 1, "7": 2})", true},
        {start + "[4]}", R"({"-": 1})", true},
        {start + R"({"-": 9223372036854775807}})", R"({"-": 9223372036854775807})", true},
        {start, R"({"-": 1})", false},
        {"[1, 2]", R"({"-": 1})", false},
    };
    for (const auto& [before, after, keeps_start] : files) {
        write_text(stats_path, before);
        const auto earlier = reporter::grace_begin();
        EXPECT_TRUE(reporter::stats(stats_path).add_event("sent", 1, {})) << before;
        EXPECT_GT(reporter::grace_begin(), earlier);
        EXPECT_EQ(counters("sent"), json_parse(after)) << before;
        EXPECT_EQ(counters("first_start_at") == "then", keeps_start) << before;
    }
}

TEST_F(records, lose_what_a_full_disk_does_not_take) {
    reporter::stats events(stats_path);
    EXPECT_TRUE(events.add_event("sent", 1, {}));
    {
        const full_disk disk(0);
        EXPECT_TRUE(events.add_event("sent", 2, {}));
        EXPECT_TRUE(reporter::journal(journal_path, 10, 100).add("s", "text"));
        EXPECT_EQ(read_text(journal_path) + read_text(stats_path), "");
    }
    EXPECT_TRUE(events.add_event("sent", 4, {}));
    EXPECT_EQ(counters("sent")["-"], 7);
}

TEST_F(records, are_not_kept_by_a_thread_that_holds_another_lock) {
    reporter::stats events(stats_path);
    file_lock other("open_only", "tev_reporter_db_file_lock");
    const std::lock_guard<file_lock> guard(other);
    EXPECT_FALSE(events.add_event("sent", 1, {}));
    EXPECT_EQ(recorder.messages().back(), "E can't write to stats file: Resource deadlock avoided");
}

TEST_F(records, of_several_processes_add_up_per_module) {
    EXPECT_TRUE(in_children(3, [] {
        for (int i = 0; i < 40; ++i) {
            const auto module = static_cast<std::int16_t>(i % 2 * -5);
            reporter::add_event("sent", 2, {module, 0, {}, 0});
        }
        return true;
    }));
    EXPECT_EQ(counters("sent"), json_parse(R"({"-": 120, "-5": 120})"));
    EXPECT_EQ(counters("first_start_at").asString().size(), stamp_size);
    EXPECT_EQ(counters("last_wrote_at").asString().size(), stamp_size);
    EXPECT_TRUE(lock_is_free("tev_reporter_stats_file_lock"));
}

TEST_F(records, need_their_lock_file_and_end_with_their_removal) {
    const std::string lock = lock_dir() / "tev_reporter_stats_file_lock";
    std::filesystem::remove(lock);
    EXPECT_THROW(reporter::add_event("sent", 1), std::runtime_error);
    write_text(lock, "");
    reporter::add_event("sent", 1);
    reporter::remove_stats();
    reporter::add_event("sent", 1);
    EXPECT_EQ(counters("sent"), json_parse(R"({"-": 1})"));
    reporter::init_stats();
}
