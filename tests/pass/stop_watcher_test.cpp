#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "sha256.h"
#include "support/agent_run.h"
#include "support/raw_peer.h"

namespace {

using namespace test_support;

class stop_watcher : public pass_test {
protected:
    void SetUp() override {
        pass_test::SetUp();
        sender()["max_count_sending_tries"] = 2;
        save(1);
        run_pass();  // Seals the report: from here on only its removal writes.
    }

    // SIGTERM twice once the line is there. The pass ends in order and soon, with the store
    // untouched. Where it can, it notices and goes on to its own end.
    pass stops_after(const std::string& line, const std::string& noticed = "*",
                     const strings& front = {}) {
        SCOPED_TRACE(line);
        const std::string before = read_text(data_dir() / "db_reports");
        child_process process(joined(front, agent()));
        process.wait_for("module_host::wait");  // The handler is there.
        process.wait_for(line);
        process.signal(SIGTERM);
        process.wait_for("stopping module: report_sender_module");
        process.signal(SIGTERM);
        // A second is the promise; the rest is for a busy machine.
        EXPECT_TRUE(wait_until([&] { return !process.running(); }, std::chrono::seconds(20)));
        const pass life = end_of(std::move(process));
        EXPECT_EQ(life.count("I stopping module: report_sender_module"), 1);
        EXPECT_EQ(life.missing({"I stopping module: *", noticed}), "");
        EXPECT_EQ(read_text(data_dir() / "db_reports"), before);
        return life;
    }

    static int locked(const char* name) {
        const int lock = open((lock_dir() / name).c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_EQ(lockf(lock, F_LOCK, 0), 0);
        return lock;
    }

    pass waits_for_statistics(const std::string& line, const strings& front = {}) {
        const int lock = locked("tev_reporter_stats_file_lock");
        child_process process(joined(front, agent()));
        process.wait_for(line);
        process.signal(SIGTERM);
        EXPECT_FALSE(wait_until([&] { return !process.running(); }, std::chrono::seconds(1)));
        close(lock);
        return end_of(std::move(process));
    }

    static void use_script(const std::string& text) {
        write_text(data_dir() / "lua" / "processor_extension_V1.lua", text);
    }
};

TEST_F(stop_watcher, ends_a_transfer) {
    const std::string go_on = "HTTP/1.1 100 Continue\r\n\r\n";
    for (const std::string& start : {std::string(), go_on, go_on + answer("{}").substr(0, 20)}) {
        raw_peer server({[&](peer_connection& client) {
            client.read_request();
            client.write(start);
            client.read();
        }});
        use_port(server.port());
        stops_after("returned chunkSize=", "I response status code: *");
    }
    raw_peer no_handshake({[](peer_connection& client) { client.read_request(); }}, {""});
    use_port(no_handshake.port());
    stops_after("sslctxfun curl status: 0", "I response status code: *");
    const listener no_connection(0);
    use_port(no_connection.port());
    stops_after("use_ssl/set finish", "I response status code: *");
    sender()["server_url"] = "https://reports.example.com";  // Its resolver never answers.
    stops_after("use_ssl/set finish");
}

TEST_F(stop_watcher, ends_the_wait_for_a_lock_and_an_endless_script) {
    const int lock = locked("tev_reporter_db_file_lock");
    EXPECT_EQ(stops_after("get_all_dispatch_times").count("I timestapms: *"), 0);
    close(lock);
    use_script("function get_all_dispatch_times() WARN('end' .. 'less') while true do end end");
    stops_after("endless");
}

// The lock is held for longer than a hang may last, and the pauses last longer than a lock may.
TEST_F(stop_watcher, waits_for_the_removal_of_answered_reports) {
    use_collector();
    run_pass();  // What SetUp saved may be due at another time than the rest.
    save(40);
    // Before that each report took three pauses.
    const pass life = waits_for_statistics("codes: 40", {"env", "TEV_REAL_FROM=124"});
    EXPECT_EQ(life.missing({"I stopping module: *", "I storage::remove_reports: 40",
                            "I report_sender_module_policy::finish", "I waited  *"}),
              "");
    EXPECT_EQ(stored(), 0);
    EXPECT_EQ(stats()["sent"]["7"], 41);
    EXPECT_EQ(stats()["removed"]["7"], 41);

    save(1);
    config["processor"]["check_hash_min_size"] = 1;
    write_text(scratch_root() / "hashes", reporter::sha256("content a", 9));
    use_collector({"--known-hashes", scratch_root() / "hashes"});
    waits_for_statistics("storage::remove_reports: 1");
    EXPECT_EQ(stats()["removed"]["7"], 42);
}

TEST_F(stop_watcher, waits_for_a_cursor_but_not_for_the_walk_over_further_times) {
    use_script(R"(
local times, ids = {}, {}
for time = 1, 1000 do times[time] = time end
for id = 1, 25000 do ids[id] = id end
function get_all_dispatch_times() return times end
function get_ids_by_dispatch_time(time) return time == 1 and ids or {1} end
function get_report_as_json_by_id() return '{}' end
)");
    const pass life =
        stops_after("chunk_index: 0", "I time expired: *", {"env", "TEV_REAL_FROM=1"});
    EXPECT_EQ(life.count("I report_sender_module_policy::finish"), 0);
}

}  // namespace
