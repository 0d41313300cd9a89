#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "support/agent_run.h"
#include "support/raw_peer.h"

namespace {

using namespace test_support;

class stop : public pass_test {
protected:
    void SetUp() override {
        pass_test::SetUp();
        sender()["max_count_sending_tries"] = 2;
        save(1);
        run_pass();  // Seals the report: from here on only its removal writes.
    }

    // SIGTERM twice once the line is there: an end in order, soon, with the store untouched.
    // Where it can, the pass notices and goes on to its own end.
    pass stops_after(const std::string& line, const std::string& noticed = "*") {
        SCOPED_TRACE(line);
        const std::string before = read_text(data_dir() / "db_reports");
        child_process process(agent());
        process.wait_for("module_host::wait");  // The handler is there.
        process.wait_for(line);
        process.signal(SIGTERM);
        process.wait_for("stopping module: report_sender_module");
        process.signal(SIGTERM);
        // A second is the promise; the rest is for a busy machine.
        EXPECT_TRUE(wait_until([&] { return !process.running(); }, std::chrono::seconds(5)));
        const pass life = end_of(std::move(process));
        EXPECT_EQ(life.count("I stopping module: report_sender_module"), 1);
        EXPECT_EQ(life.missing({"I stopping module: *", noticed}), "");
        EXPECT_EQ(read_text(data_dir() / "db_reports"), before);
        return life;
    }
};

TEST_F(stop, ends_a_transfer) {
    const std::string go_on = "HTTP/1.1 100 Continue\r\n\r\n";
    for (const std::string& start : {std::string(), go_on, go_on + answer("{}").substr(0, 20)}) {
        raw_peer server({[&](peer_connection& client) {
            client.read_request();
            client.write(start);
            client.read();
        }});
        use_port(server.port());
        stops_after("returned chunkSize=", "I response status code: -*");
    }
    raw_peer no_handshake({[](peer_connection& client) { client.read_request(); }}, {""});
    use_port(no_handshake.port());
    stops_after("sslctxfun curl status: 0", "I response status code: -*");
    const listener no_connection(0);
    use_port(no_connection.port());
    stops_after("use_ssl/set finish", "I response status code: -*");
    sender()["server_url"] = "https://reports.example.com";  // Its resolver never answers.
    stops_after("use_ssl/set finish");
}

TEST_F(stop, ends_the_wait_for_a_lock_and_an_endless_script) {
    const int lock = open((lock_dir() / "tev_reporter_db_file_lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(lockf(lock, F_LOCK, 0), 0);
    EXPECT_EQ(stops_after("get_all_dispatch_times").count("I timestapms: *"), 0);
    use_collector();
    child_process waiting(agent());
    waiting.wait_for("get_all_dispatch_times");
    ASSERT_EQ(lockf(lock, F_ULOCK, 0), 0);
    end_of(std::move(waiting));
    EXPECT_EQ(stored(), 0);
    write_text(data_dir() / "lua" / "processor_extension_V1.lua",
               "function get_all_dispatch_times() WARN('end' .. 'less') while true do end end");
    stops_after("endless");
}

}  // namespace
