#include "tool.h"

namespace {

using namespace test_support;

using records = tool_test;

TEST_F(records, shows_what_passes_left_behind) {
    save(2);
    use_collector({"--answer", "* reports codes=200,500"});
    run_pass();
    write_text(data_dir() / "journal", "2026-Nov-24 21:05:59::sender::a::b\n");
    EXPECT_EQ(output({"journal"}),
              "time                  source  text\n"
              "2026-Nov-24 21:05:59  sender  a::b\n");
    EXPECT_EQ(output({"stats"}).find("module  removed  sent\n     7        1     1\n\ncounted"),
              0U);
    const Json::Value accounts = json({"accounts"});
    EXPECT_EQ(accounts["saved"], 2);
    EXPECT_EQ(accounts["removed"], 1);
    EXPECT_EQ(accounts["stored"], 1);
}

TEST_F(records, ends_with_a_status_for_scripts) {
    EXPECT_EQ(output({"stats"}), "nothing was counted yet\n");
    write_text(data_dir() / "stats", "[]");
    output({"stats"}, 1);
    output({"stats", "--jsn"}, 2);
    EXPECT_EQ(output({"stat"}, 2).find("tev-report: stat is no command\n"), 0U);
    child_process full(
        joined({"sh", "-c", "exec \"$@\" >/dev/full", "sh"}, built_program(TEV_REPORT, {"list"})));
    EXPECT_EQ(full.wait(), 1) << full.output();
    output({"doctor", "--help"}, 0);
}

}  // namespace
