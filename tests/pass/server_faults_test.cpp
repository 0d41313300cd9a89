#include <poll.h>

#include <tuple>

#include "support/agent_run.h"
#include "support/raw_peer.h"

namespace {

using namespace test_support;

using server_faults = pass_test;

// Bytes of an answer that takes its time. The sanitizers copy it whenever it grows.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t LARGE = 4 << 20;
#else
constexpr std::size_t LARGE = 64 << 20;
#endif

behaviour closing(bool after_request, bool with_reset) {
    return [=](peer_connection& client) {
        if (after_request) {
            client.read_request();
        }
        if (with_reset) {
            client.reset_at_end();
        }
    };
}

behaviour coded(const std::string& codes) {
    return answering(answer("{\"body\":" + codes + "}"));
}

TEST_F(server_faults, lose_nothing) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 30\r\n", none = "I codes: 0";
    const std::string no_json = "E some_error: bad response, isn't a json", bad = "E some_error: *";
    const std::tuple<behaviour, std::string, int> faults[] = {
        {closing(false, true), "I response status code: -*", 2},
        {closing(true, true), "I response status code: -*", 2},
        {closing(false, false), "I response status code: -*", 2},
        {closing(true, false), "I response status code: -*", 2},
        {answering(head.substr(0, 30)), "I report_sender_module_policy::finish", 2},
        {answering(head + "\r\n"), "I response status code: -18", 2},
        {answering(head + "\r\n{\"body\":[200,"), "I response status code: -18", 2},
        {answering(std::string("\0\1\2 200\r\n\r\n", 12)), "I response status code: -1", 2},
        {answering(answer("", "302 Found\r\nLocation: /")), "I response status code: 302", 2},
        {answering(answer("")), no_json, 2},
        {answering(answer("<html>")), no_json, 2},
        {answering(answer(std::string(10 << 20, '['))), no_json, 2},
        {answering(answer("[200,200]")), bad, 2},
        {answering(answer("{}")), none, 2},
        {coded("null"), none, 2},
        {coded("{\"a\":200}"), none, 2},
        {coded("\"200\""), none, 2},
        {coded("[200]"), "I codes: 1", 1},
        {coded("[500,200,200,400]"), "I codes: 4", 1},
        {coded("[200,[200]]"), bad, 2},
        {coded("[200,\"200\"]"), bad, 2},
        {coded("[200.5,200]"), "I codes: 2", 1},
        {coded("[-200,-2147483448]"), "I codes: 2", 2},
        {coded("[9223372036854775808,200]"), bad, 2},
        {coded("[4294967496,200]"), bad, 2},
    };
    for (const auto& fault : faults) {
        const auto& [treat, line, left] = fault;
        SCOPED_TRACE(&fault - faults);
        save(2);
        raw_peer server({treat, take_all});
        use_port(server.port());
        expect(line, left);
        expect("I response status code: 200", 0);
        EXPECT_EQ(server.stop().size(), 2U);
    }
}

TEST_F(server_faults, end_with_the_time_out) {
    save(1);
    sender()["sending_timeout"] = 0;  // The least is 30 seconds.
    raw_peer server({[](peer_connection& client) {
        client.read_request();
        client.write("HTTP/1.1 200 OK\r\n\r\n");
        for (int seconds = 0; seconds < 31; ++seconds) {
            client.write("[");
            poll(nullptr, 0, 1000);
        }
    }});
    use_port(server.port());
    expect("I response status code: -28", 1);
}

TEST_F(server_faults, of_one_endpoint_spare_the_other) {
    config["processor"]["check_hash_min_size"] = 1;
    save(2);
    raw_peer server({coded("[0,1]"), closing(true, true), closing(true, true), take_all});
    use_port(server.port());
    expect("I response status code: -*", 1);
    expect("I can't check hashes: status code: -*", 0);
}

TEST_F(server_faults, take_memory_in_proportion_to_the_answer) {
    save(2);
    raw_peer server({coded("[200,400],\"more\":\"" + std::string(LARGE, '-') + "\"")});
    use_port(server.port());
    EXPECT_LT(run_pass().peak_kib, 512 << 10);
    EXPECT_EQ(stored(), 0);
}

}  // namespace
