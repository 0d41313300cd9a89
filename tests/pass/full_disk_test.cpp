#include "support/agent_run.h"

namespace {

using namespace test_support;

using full_disk = pass_test;

// $1 is the data directory, here on a small disk of its own; $2 holds what it begins and ends with.
// Saves with more and more room, then runs the agent without any and with all of it.
const char* const ON_A_SMALL_DISK = R"(set -eu
    data=$1 kept=$2 source=$3
    shift 3
    cp -a "$kept"/. "$data"
    for room in 0 4 8 12 16 20 24 28 32 36 40 44 48 64; do
        cat /dev/zero >"$data/filler" 2>/dev/null || truncate -s -"$room"K "$data/filler"
        echo '{"module": 8, "type": 1, "size": 20000, "seed": 1}' | $source
    done
    cat /dev/zero >"$data/filler" 2>/dev/null || :
    "$@"
    rm "$data/filler"
    echo "there is room again"
    "$@"
    cp -a "$data"/. "$kept")";

TEST_F(full_disk, costs_nothing_that_was_stored) {
    NEEDS_MOUNTS()
    save(3);
    write_text(data_dir() / "stats", R"({"sent":{"7":40},"first_start_at":"then"})");
    sender()["max_body_size"] = 1;
    use_collector({"--answer", "2 reports keep=no body={"});
    const std::string data = data_dir(), kept = scratch_root() / "kept";
    std::string source;
    for (const std::string& word : built_program(TEV_REPORT_SOURCE)) {
        source += word + " ";
    }
    const strings command = joined({"bwrap", "--dev-bind", "/", "/", "--size", "1500000", "--tmpfs",
                                    data, "sh", "-c", ON_A_SMALL_DISK, "sh", data, kept, source},
                                   agent());
    std::filesystem::copy(data, kept, std::filesystem::copy_options::recursive);
    const pass life = end_of(child_process(command));
    EXPECT_EQ(life.missing({"W LUA: report refused, report store: database or disk is full",
                            "refused", "saved id=*", "E some_error: bad response, isn't a json",
                            "there is room again"}),
              "");
    const long saved = life.count("saved id=*");
    EXPECT_EQ(saved + life.count("refused"), 14);
    EXPECT_EQ(static_cast<long>(received().size()), 3 + saved);

    for (const char* name : {"/db_reports", "/db_reports-journal", "/stats"}) {
        write_text(data + name, read_text(kept + name));
    }
    EXPECT_EQ(query("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(stored(), 0);
    EXPECT_EQ(stats()["sent"]["7"], 43);
    EXPECT_EQ(stats()["sent"]["8"], Json::Int64(saved));
    EXPECT_EQ(stats()["first_start_at"], "then");
}

}  // namespace
