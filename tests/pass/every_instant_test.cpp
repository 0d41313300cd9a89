#include <algorithm>
#include <csignal>

#include "sha256.h"
#include "support/agent_run.h"
#include "support/children.h"

namespace {

using namespace test_support;

// Content of this size is marked for the hash check.
constexpr unsigned MARKED = 64;

class every_instant : public pass_test, public ::testing::WithParamInterface<int> {
protected:
    // Twelve reports for three chunks: the first of each counts two occurrences, the last is
    // marked, and that of the second chunk is known to the server.
    void SetUp() override {
        pass_test::SetUp();
        config["processor"]["check_hash_min_size"] = MARKED;
        sender()["max_body_size"] = 1400;
        for (std::int16_t type = 0; type < 12; ++type) {
            const std::string text(type % 4 == 3 ? MARKED : 8, static_cast<char>('a' + type));
            for (int count = type % 4 == 0 ? 2 : 1; count > 0; --count) {
                save({7, type, {text.begin(), text.end()}, type % 4 == 0 ? 3U : 0U});
            }
        }
        write_text(hashes, reporter::sha256(std::string(MARKED, 'a' + 7).data(), MARKED));
    }

    // To be put before a command, whose pause number `at` then gets the signal.
    static strings signal_at(int number, int at) {
        return {"env", "TEV_SIGNAL=" + std::to_string(number),
                "TEV_SIGNAL_AT=" + std::to_string(at)};
    }

    // Occurrences that the server has. It keeps a report that comes twice as it came first.
    static long delivered() {
        long sum = 0;
        for (const Json::Value& report : received()) {
            sum += report["count"].asUInt();
        }
        return sum;
    }

    static void expect_sound_files() {
        EXPECT_EQ(query("SELECT saved = removed + total(count) FROM accounts LEFT JOIN reports; "
                        "PRAGMA integrity_check"),
                  "1\nok");
        EXPECT_TRUE(stats().isObject());
        for (const auto& lock : std::filesystem::directory_iterator(lock_dir())) {
            EXPECT_TRUE(lock_is_free(lock.path().filename()));
        }
    }

    const std::string hashes = scratch_root() / "hashes";
};

TEST_P(every_instant, may_be_the_last) {
    const std::string store = data_dir() / "db_reports", journal = store + "-journal";
    const std::string fresh_store = read_text(store), fresh_journal = read_text(journal);
    bool was_cut = true;
    int k = 0;
    while (was_cut && !HasFailure()) {
        SCOPED_TRACE(++k);
        write_text(store, fresh_store);
        write_text(journal, fresh_journal);
        use_collector({"--known-hashes", hashes});
        child_process process(joined(signal_at(GetParam(), k), agent()));
        const pass life(process);
        was_cut = life.count("signal") == 1;
        EXPECT_EQ(life.status, was_cut && GetParam() == SIGKILL ? 128 + SIGKILL : 0);

        stats();  // Fails when the file was cut short.
        // Only the chunk under way may come again.
        auto settled = received();
        if (!requests().empty() && requests().back().rfind("/reports ", 0) == 0) {
            settled.resize(settled.size() - std::stoul(requests().back().substr(9)));
        }
        expect("I report_sender_module_policy::finish", 0);
        const auto reports = received();
        for (const Json::Value& early : settled) {
            EXPECT_EQ(std::count(reports.begin(), reports.end(), early), 1);
        }
        EXPECT_EQ(delivered(), 14);
        expect_sound_files();
    }
    // Pauses: two for the lists, four for each report, one for each chunk. The last life was not
    // cut.
    EXPECT_EQ(k, 2 + 4 * 12 + 3 + 1);
    EXPECT_EQ(requests(), (strings{"/check_hashes 1 200", "/reports 4 200", "/check_hashes 1 200",
                                   "/reports 3 200", "/check_hashes 1 200", "/reports 4 200"}));
}

INSTANTIATE_TEST_SUITE_P(of_a_pass, every_instant, ::testing::Values(SIGKILL, SIGTERM));

TEST_F(every_instant, may_be_one_of_saving) {
    const std::string input = scratch_root() / "input";
    write_text(input, R"({"module": 1, "type": 1, "aggregationid": 3, "content": "alike"}
{"module": 2, "type": 2, "content": "{\"caller\": \"c\", \"filehash\": \"f\"}"}
{"ext_aggregation": {"caller": "c", "filehash": "f"}}
)");
    use_collector({"--known-hashes", hashes});
    const char* const save_until_told =
        "until [ -e \"$0.enough\" ]; do \"$@\" <\"$0\" 2>/dev/null || exit; done";
    const strings saver =
        joined({"sh", "-c", save_until_told, input, "env", "LD_PRELOAD=" + skip_pauses()},
               built_program(TEV_REPORT_SOURCE));
    // Its configuration is not written any more while savers read it.
    const strings life = agent();
    child_process savers[] = {child_process(saver), child_process(saver), child_process(saver),
                              child_process(saver)};
    for (int k = 5; k <= 60; k += 5) {
        child_process(joined(signal_at(k % 2 == 1 ? SIGKILL : SIGTERM, k), life)).wait();
    }
    write_text(input + ".enough", "");
    for (child_process& saving : savers) {
        EXPECT_EQ(saving.wait(), 0) << saving.output();
    }
    run_pass();
    long saved = 14;
    for (child_process& ended : savers) {
        for (const std::string& result : lines_of(ended.output())) {
            saved += result != "counted 0" && result != "refused" ? 1 : 0;
        }
    }
    EXPECT_EQ(delivered() + std::stol(query("SELECT total(count) FROM reports")), saved);
    expect_sound_files();
}

}  // namespace
