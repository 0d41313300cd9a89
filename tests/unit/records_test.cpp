#include <algorithm>
#include <sstream>

#include "common.h"
#include "journal.h"
#include "stats.h"
#include "support/children.h"
#include "support/error_of.h"
#include "support/full_disk.h"

using namespace test_support;
using reporter::report;

namespace {

constexpr std::size_t stamp_size = 20;

Json::Value json(const std::string& text) {
    return reporter::json_parse(text);
}

Json::Value counters(const std::string& event) {
    return json(read_text(data_dir() / "stats"))[event];
}

report of_module(int module) {
    report record;
    record.module = static_cast<std::int16_t>(module);
    return record;
}

}  // namespace

class records : public device_test {
protected:
    // What follows the time stamp in each line of the journal.
    messages journal_lines() const {
        std::istringstream text(read_text(journal_path));
        messages lines;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line.substr(std::min(line.size(), stamp_size)));
        }
        return lines;
    }

    const std::string journal_path = data_dir() / "journal";
    const std::string stats_path = data_dir() / "stats";
};

TEST_F(records, of_a_run_begin_empty_and_keep_the_last_lines) {
    write_text(journal_path, "of an earlier run\n");
    reporter::journal journal(journal_path, 3, 30);
    EXPECT_EQ(read_text(journal_path), "");
    for (const char* text : {"a", "b", "c\nd", "12345", "123456", "1234567"}) {
        EXPECT_TRUE(journal.add("s", text));
    }
    EXPECT_EQ(journal_lines(), (messages{"::s::12345", "::s::12345", "::s::12345"}));
    EXPECT_TRUE(journal.add("s", "c\nd"));
    EXPECT_EQ(journal_lines().back(), "::s::c d");
}

TEST_F(records, of_the_process_have_their_place_and_size) {
    EXPECT_EQ(reporter::get_journal().get_path(), journal_path);
    write_text(journal_path, "");
    for (int i = 1; i <= 11; ++i) {
        reporter::get_journal().add("s", std::to_string(i) + std::string(100, 'x'));
    }
    const std::string text = read_text(journal_path);
    EXPECT_EQ(text.size(), 10U * 101);
    EXPECT_EQ(text.substr(stamp_size, 7), "::s::2x");
}

TEST_F(records, tell_when_they_cannot_be_written) {
    reporter::journal journal(journal_path, 2, 100);
    journal.add("s", "kept");
    {
        const full_disk disk(40);
        EXPECT_FALSE(journal.add("s", "too long for what is left"));
        EXPECT_FALSE(reporter::stats(stats_path).add_event("sent", 1, report{}));
    }
    EXPECT_EQ(journal_lines(), messages{"::s::kept"});
    std::filesystem::remove(journal_path);
    EXPECT_FALSE(journal.add("s", "gone"));
    for (const std::string& line : {"journal: " + journal_path + " :can't be written",
                                    "journal: " + journal_path + " :file doesn't exist",
                                    "stats file: " + stats_path + " :can't be written"}) {
        EXPECT_EQ(recorder.count("E can't write to " + line), 1U) << line;
    }
}

TEST_F(records, count_events_per_module) {
    reporter::stats stats(stats_path);
    EXPECT_TRUE(stats.add_event("sent", 3, of_module(0)));
    const Json::Value first = counters("first_start_at");
    EXPECT_EQ(first.asString().size(), stamp_size);
    for (const int module : {0, -5, 32767, 32767}) {
        EXPECT_TRUE(stats.add_event("sent", 3, of_module(module)));
    }
    EXPECT_EQ(counters("sent"), json(R"({"-": 6, "-5": 3, "32767": 6})"));
    EXPECT_EQ(counters("first_start_at"), first);
    EXPECT_EQ(counters("last_wrote_at").asString().size(), stamp_size);
}

TEST_F(records, count_on_from_whatever_the_file_holds) {
    const std::string start = R"({"first_start_at": "then", "sent": )";
    const std::tuple<std::string, const char*, bool> files[] = {
        {start + R"({"-": 4, "7": 2}})", R"({"-": 5, "7": 2})", true},
        {start + R"({"-": "4"}})", R"({"-": 1})", true},
        {start + R"({"-": 1.5, "7": {}}})", R"({"-": 1, "7": {}})", true},
        {start + "[4]}", R"({"-": 1})", true},
        {start + R"({"-": 9223372036854775807}})", R"({"-": 9223372036854775807})", true},
        {start, R"({"-": 1})", false},
        {"[1, 2]", R"({"-": 1})", false},
        {"", R"({"-": 1})", false},
    };
    for (const auto& [before, after, keeps_start] : files) {
        write_text(stats_path, before);
        EXPECT_TRUE(reporter::stats(stats_path).add_event("sent", 1, report{})) << before;
        EXPECT_EQ(counters("sent"), json(after)) << before;
        EXPECT_EQ(counters("first_start_at") == "then", keeps_start) << before;
    }
}

TEST_F(records, of_several_processes_add_up) {
    EXPECT_TRUE(in_children(3, [] {
        for (int i = 0; i < 40; ++i) {
            reporter::add_event("sent", 2, of_module(i % 2));
        }
        return true;
    }));
    EXPECT_EQ(counters("sent"), json(R"({"-": 120, "1": 120})"));
    EXPECT_TRUE(lock_is_free("tev_reporter_stats_file_lock"));
}

TEST_F(records, need_their_lock_file_and_end_with_their_removal) {
    const std::string lock = lock_dir() / "tev_reporter_stats_file_lock";
    std::filesystem::remove(lock);
    EXPECT_EQ(error_of([] { reporter::add_event("sent", 1); }),
              "Failed to create or open: " + lock);
    write_text(lock, "");
    reporter::add_event("sent", 1);
    reporter::remove_stats();
    reporter::add_event("sent", 1);
    EXPECT_EQ(reporter::get_stats(), nullptr);
    EXPECT_EQ(counters("sent"), json(R"({"-": 1})"));
    reporter::init_stats();
}
