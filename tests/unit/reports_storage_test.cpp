#include "storage/reports_storage.h"

#include "support/children.h"
#include "support/error_of.h"

using namespace test_support;
using reporter::reports_storage;
using ids = std::vector<unsigned int>;

namespace {

const std::string lock_name = "tev_reporter_db_file_lock";

// Time 10 lists three reports, time 20 two; one of them is under both.
const std::string good_script = R"(
function save_report(t) return 1 end
function ext_aggregation(t) return 1 end
function get_all_dispatch_times() return {20, 10} end
function get_ids_by_dispatch_time(t) return t == 10 and {3, 1, 2} or t == 20 and {2, 4} or {} end
function get_report_as_json_by_id(id) return '{}' end
function remove_report_by_id(id) if id == 2 then error('boom', 0) end return id * 10 end
)";

std::shared_ptr<reports_storage> make_storage(const std::string& script, bool release_when_idle) {
    const auto config = reporter::parse_config(R"({"processor": {"dispatching_time": "0"}})");
    return reports_storage::make({{config, {}}, script, ""}, release_when_idle);
}

// The ids that a cursor hands out, in order.
ids walk(reporter::reports_storage_cursor&& cursor) {
    ids walked;
    while (cursor.has_next()) {
        walked.push_back(cursor.get_id());
    }
    return walked;
}

class store : public device_test {
protected:
    const std::shared_ptr<reports_storage> storage = make_storage(good_script, true);
};

}  // namespace

TEST_F(store, frames_each_operation_with_the_lock_and_the_release) {
    static reporter::ext_aggregation_data query;
    const std::pair<const char*, void (*)(reports_storage&)> operations[] = {
        {"I storage::remove_reports: 1", [](auto& s) { s.remove_report(5); }},
        {"I save_report func", [](auto& s) { s.save_report({}); }},
        {"I save_ext_aggregation_data", [](auto& s) { s.ext_aggregation(query); }},
        {"I get_all_dispatch_times", [](auto& s) { s.get_all_dispatch_times(); }},
        {"I cursor", [](auto& s) { s.cursor(0); }},
        {"I get_report_as_json", [](auto& s) { s.get_report_as_json(5); }},
    };
    for (const auto& [line, operate] : operations) {
        for (const std::string& script : {good_script, std::string()}) {
            const auto tested = make_storage(script, true);
            recorder.clear();
            // Only removals go on after a failure.
            const bool goes_on = script == good_script || operate == operations[0].second;
            EXPECT_EQ(error_of([&, call = operate] { call(*tested); }) == "nothing thrown",
                      goes_on);
            const messages log = recorder.messages();
            EXPECT_EQ(messages(log.begin(), log.begin() + 3),
                      (messages{line, "I Locked: " + lock_name, "I mutex locked"}));
            EXPECT_EQ(recorder.count("I release lua sandbox"), 1U);
            EXPECT_EQ(log.back(), "I Unlocked: " + lock_name);
            EXPECT_TRUE(lock_is_free(lock_name)) << line;
        }
    }
}

TEST_F(store, hands_each_report_to_one_cursor_at_a_time) {
    {
        auto first = storage->cursor(10);
        recorder.clear();
        EXPECT_EQ(walk(storage->cursor(10)), ids{});
        EXPECT_EQ(walk(std::move(first)), (ids{3, 1, 2}));
        EXPECT_EQ(walk(storage->cursor(10)), ids{}) << "an empty one gave back another's";
        auto second = storage->cursor(20);
        EXPECT_EQ(second.size(), 1);
        storage->skip_report(2);
        EXPECT_EQ(walk(storage->cursor(20)), ids{2});
        EXPECT_EQ(storage->remove_reports({3, 2, 4}),
                  (std::vector<std::pair<unsigned int, unsigned int>>{{3, 30}, {4, 40}}));
        EXPECT_EQ(walk(storage->cursor(10)), (ids{3, 2}));
        EXPECT_EQ(recorder.count("I release lua sandbox"), 0U);
    }
    EXPECT_GT(recorder.count("I release lua sandbox"), 0U);
    EXPECT_EQ(walk(storage->cursor(10)), (ids{3, 1, 2}));
    EXPECT_EQ(walk(storage->cursor(20)), (ids{2, 4}));
}

TEST_F(store, walks_a_cursor_report_by_report) {
    auto made = make_storage(good_script, false)->cursor(20);
    EXPECT_TRUE(made.has_next());
    reporter::reports_storage_cursor cursor(std::move(made));
    EXPECT_EQ(made.size(), 0);  // NOLINT(bugprone-use-after-move): it stays a cursor
    EXPECT_TRUE(cursor.has_next()) << "a moved cursor tests the position again";
    EXPECT_EQ(cursor.get_id(), 2U);
    EXPECT_TRUE(cursor.has_next());
    EXPECT_FALSE(cursor.has_next());
    EXPECT_EQ(error_of([&] { cursor.next_as_json(); }), "has not next");
    EXPECT_EQ(recorder.count("I release lua sandbox"), 0U);
}
