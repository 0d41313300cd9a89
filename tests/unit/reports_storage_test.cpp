#include "storage/reports_storage.h"

#include <json/value.h>

#include "support/children.h"
#include "support/error_of.h"

using namespace test_support;
using reporter::lua_exception;
using reporter::reports_storage;
using ids = std::vector<unsigned int>;
using removals = std::vector<std::pair<unsigned int, unsigned int>>;

namespace {

const std::string lock_name = "tev_reporter_db_file_lock";

// Time 10 lists three reports, time 20 another two, of which one stands under both.
const std::string plain_script = R"(
function save_report(t) return 100 + t.size end
function ext_aggregation(t) return #t.caller end
function get_all_dispatch_times() return {20, 10} end
function get_ids_by_dispatch_time(t)
    return t == 10 and {3, 1, 2} or t == 20 and {2, 4} or {}
end
function get_report_as_json_by_id(id) return id == 4 and '{' or '{"number": ' .. id .. '}' end
function remove_report_by_id(id) if id == 2 then error('boom', 0) end return id * 10 end
)";

std::shared_ptr<reports_storage> make_storage(bool release_when_idle,
                                              const std::string& changes = "") {
    const reporter::config_helper config(
        reporter::parse_config(R"({"processor": {"dispatching_time": "0"}})"), {});
    return reports_storage::make({config, plain_script + changes, ""}, release_when_idle);
}

// Each function of the script: the type that it must return, the line and the call that reach it.
const struct {
    const char* function;
    const char* type;
    const char* line;
    void (*operate)(reports_storage&);
} operations[] = {
    {"save_report", "number", "I save_report func", [](reports_storage& s) { s.save_report({}); }},
    {"ext_aggregation", "number", "I save_ext_aggregation_data",
     [](reports_storage& s) {
         reporter::ext_aggregation_data query;
         s.ext_aggregation(query);
     }},
    {"get_all_dispatch_times", "table( array )", "I get_all_dispatch_times",
     [](reports_storage& s) { s.get_all_dispatch_times(); }},
    {"get_ids_by_dispatch_time", "table( array )", "I cursor",
     [](reports_storage& s) { s.cursor(0); }},
    {"get_report_as_json_by_id", "string", "I get_report_as_json",
     [](reports_storage& s) { s.get_report_as_json(5); }},
    {"remove_report_by_id", "number", "I storage::remove_reports: 1",
     [](reports_storage& s) { s.remove_report(5); }},
};

// The ids that a cursor hands out, in order.
ids walk(reporter::reports_storage_cursor&& cursor) {
    ids walked;
    while (cursor.has_next()) {
        walked.push_back(cursor.get_id());
    }
    return walked;
}

}  // namespace

class store : public device_test {
protected:
    const std::shared_ptr<reports_storage> storage = make_storage(true);
};

TEST_F(store, hands_values_through) {
    reporter::ext_aggregation_data query{"caller", ""};
    EXPECT_EQ(storage->save_report({1, 2, {'a', 'b'}, 3}), 102);
    EXPECT_EQ(recorder.count("I save_report func result: 102"), 1U);
    EXPECT_EQ(storage->ext_aggregation(query), 6);
    EXPECT_EQ(storage->get_all_dispatch_times(), (std::vector<long>{20, 10}));
    EXPECT_EQ(storage->get_report_as_json(7), "{\"number\": 7}");
    EXPECT_EQ(storage->remove_report(7), (removals{{7, 70}}));
    EXPECT_EQ(storage->remove_reports({1, 2, 3}), (removals{{1, 10}, {3, 30}}));
    EXPECT_EQ(recorder.count("E can't remove report: 2 boom"), 1U);
    std::filesystem::remove(lock_dir() / lock_name);
    EXPECT_EQ(error_of([] { make_storage(true); }),
              "Failed to create or open: /run/user/5001/" + lock_name);
}

TEST_F(store, frames_each_operation_with_the_lock_and_the_release) {
    for (const auto& operation : operations) {
        for (const bool release : {true, false}) {
            const auto tested = make_storage(release);
            tested->get_all_dispatch_times();
            recorder.clear();
            operation.operate(*tested);
            const messages log = recorder.messages();
            EXPECT_EQ(messages(log.begin(), log.begin() + 3),
                      (messages{operation.line, "I Locked: " + lock_name, "I mutex locked"}));
            EXPECT_EQ(log.back(), "I Unlocked: " + lock_name);
            EXPECT_EQ(recorder.count("I reports_storage::release"), 1U) << operation.line;
            EXPECT_EQ(recorder.count("I release lua sandbox"), release ? 1U : 0U);
            EXPECT_EQ(recorder.count("I lua_sandbox::init"), release ? 1U : 0U);
        }
    }
    recorder.clear();
    EXPECT_TRUE(storage->remove_reports({}).empty());
    storage->skip_report(1);
    messages expected;
    for (const char* line : {"I storage::remove_reports: 0", "I skip_report"}) {
        expected.insert(expected.end(), {line, "I Locked: " + lock_name, "I mutex locked",
                                         "I reports_storage::release", "I release lua sandbox",
                                         "I lua_sandbox::release ", "I Unlocked: " + lock_name});
    }
    EXPECT_EQ(recorder.messages(), expected);
}

TEST_F(store, comes_through_every_failure_of_the_script_with_the_lock_free) {
    for (const auto& operation : operations) {
        const std::string name = operation.function;
        const std::pair<std::string, std::string> failures[] = {
            {"function " + name + "() error('boom', 0) end", "boom"},
            {name + " = nil", "lua_state dosn't has the function: " + name},
            {"function " + name + "() return false end",
             std::string("lua: bad return type, must be ") + operation.type},
        };
        for (const auto& [change, error] : failures) {
            const auto tested = make_storage(true, change);
            recorder.clear();
            const std::string thrown = error_of<lua_exception>([&] { operation.operate(*tested); });
            // Removals are the one operation that goes on.
            const bool removal = name == "remove_report_by_id";
            EXPECT_EQ(thrown, removal ? "nothing thrown" : error) << change;
            EXPECT_EQ(recorder.count("E can't remove report: 5 " + error), removal ? 1U : 0U);
            EXPECT_EQ(recorder.count("E can't call '" + name + "'"), 1U);
            EXPECT_EQ(recorder.count("I release lua sandbox"), 1U) << change;
            EXPECT_EQ(recorder.messages().back(), "I Unlocked: " + lock_name);
            EXPECT_TRUE(lock_is_free(lock_name)) << change;
        }
    }
}

TEST_F(store, hands_each_report_to_one_cursor_at_a_time) {
    {
        auto first = storage->cursor(10);
        EXPECT_EQ(walk(storage->cursor(10)), ids{});
        EXPECT_EQ(recorder.count("I id: 3 busy: 1"), 1U);
        EXPECT_EQ(walk(std::move(first)), (ids{3, 1, 2}));
        EXPECT_EQ(walk(storage->cursor(10)), ids{})
            << "an empty cursor gave back what another holds";
        auto second = storage->cursor(20);
        EXPECT_EQ(second.size(), 1);
        storage->skip_report(2);
        EXPECT_EQ(walk(storage->cursor(20)), ids{2});
        EXPECT_EQ(storage->remove_reports({3, 4}), (removals{{3, 30}, {4, 40}}));
        EXPECT_EQ(walk(storage->cursor(10)), (ids{3, 2}));
    }
    EXPECT_EQ(walk(storage->cursor(10)), (ids{3, 1, 2}));
    EXPECT_EQ(walk(storage->cursor(20)), (ids{2, 4}));
}

TEST_F(store, keeps_the_interpreter_while_a_cursor_holds_reports) {
    {
        auto cursor = storage->cursor(10);
        recorder.clear();
        while (cursor.has_next()) {
            cursor.to_json();
            storage->remove_report(cursor.get_id() + 100);
        }
        EXPECT_EQ(recorder.count("I release lua sandbox"), 0U);
        EXPECT_EQ(recorder.count("I lua_sandbox::init"), 1U);
    }
    EXPECT_EQ(recorder.count("I skip_report"), 3U);
    EXPECT_EQ(recorder.count("I release lua sandbox"), 1U);
}

TEST_F(store, walks_a_cursor_report_by_report) {
    auto made = storage->cursor(20);
    EXPECT_TRUE(made.has_next());
    reporter::reports_storage_cursor cursor(std::move(made));
    EXPECT_EQ(made.size(), 0);
    EXPECT_TRUE(cursor.has_next()) << "a moved cursor tests the position again";
    EXPECT_EQ(cursor.get_json_size(), 0U);
    EXPECT_EQ(cursor.to_json()["number"].asInt(), 2);
    EXPECT_EQ(cursor.get_json_size(), 13U);
    EXPECT_EQ(recorder.count("I parsing report, len: 13"), 1U);
    cursor.remove();
    EXPECT_TRUE(cursor.has_next());
    EXPECT_EQ(error_of([&] { cursor.to_json(); }), "can't parse json");
    EXPECT_EQ(cursor.get_id(), 4U);
    EXPECT_EQ(cursor.size(), 2);
    EXPECT_FALSE(cursor.has_next());
    EXPECT_EQ(error_of([&] { static_cast<void>(cursor.get_id()); }), "has not next");
    EXPECT_EQ(error_of([&] { static_cast<void>(cursor.next_as_json()); }), "has not next");
}

TEST_F(store, ends_a_cursor_without_reports_at_once) {
    {
        auto cursor = storage->cursor(30);
        recorder.clear();
        EXPECT_FALSE(cursor.has_next());
    }
    EXPECT_TRUE(recorder.messages().empty());
}
