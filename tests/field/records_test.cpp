#include "support/agent_run.h"

namespace {

using namespace test_support;

class records : public pass_test {
protected:
    static std::string output(const strings& arguments, int status = 0) {
        child_process tool(
            joined({"env", "LD_PRELOAD=" TEV_PRELOAD}, built_program(TEV_REPORT, arguments)));
        EXPECT_EQ(tool.wait(), status) << tool.output();
        return tool.output();
    }
};

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
    Json::Value accounts;
    std::istringstream(output({"accounts", "--json"})) >> accounts;
    EXPECT_EQ(accounts["saved"], 2);
    EXPECT_EQ(accounts["removed"], 1);
    EXPECT_EQ(accounts["stored"], 1);
}

TEST_F(records, ends_with_a_status_for_scripts) {
    EXPECT_EQ(output({"stats"}), "nothing was counted yet\n");
    write_text(data_dir() / "stats", "[]");
    output({"stats"}, 1);
    output({"stats", "--jsn"}, 2);
    output({}, 2);
    output({"doctor", "--help"}, 0);
}

}  // namespace
