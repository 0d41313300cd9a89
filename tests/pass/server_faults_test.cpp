#include <poll.h>

#include "support/agent_run.h"
#include "support/raw_peer.h"

namespace {

using namespace test_support;

using server_faults = pass_test;

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
    // `left` of two reports stay stored after the fault, and a good server gets them.
    const auto meet = [this](const std::string& line, int left,
                             const std::vector<behaviour>& faults) {
        for (const behaviour& fault : faults) {
            SCOPED_TRACE(&fault - faults.data());
            save(2);
            raw_peer server({fault, coded("[200,200]")});
            use_port(server.port());
            expect(line, left);
            expect("I response status code: 200", 0);
        }
    };
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 30\r\n";
    meet("I response status code: -*", 2,
         {closing(false, true), closing(true, true), closing(false, false), closing(true, false),
          answering(head + "\r\n"), answering(head + "\r\n{\"body\":[200,"),
          answering(std::string("\0\1\2 200\r\n\r\n", 11))});
    meet("I report_sender_module_policy::finish", 2, {answering(head.substr(0, 30))});
    meet("I response status code: 302", 2, {answering(answer("", "302 Found\r\nLocation: /"))});
    meet("E some_error: bad response, isn't a json", 2,
         {answering(answer("")), answering(answer("<html>")),
          answering(answer(std::string(10 << 20, '[')))});
    meet("E some_error: *", 2,
         {answering(answer("[200,200]")), coded("[200,[200]]"), coded("[200,\"200\"]"),
          coded("[9223372036854775808,200]"), coded("[4294967496,200]")});
    meet("I codes: 0", 2, {answering(answer("{}")), coded("null"), coded("\"200\"")});
    meet("I codes: 2", 2, {coded("[-200,-2147483448]")});
    meet("I codes: 2", 1,
         {coded("[true,200]"), coded("[null,400.9]"), coded("{\"a\":200,\"b\":1}")});
    meet("I codes: 4", 1, {coded("[500,200,200,400]")});
}

TEST_F(server_faults, end_with_the_time_out) {
    config["processor"]["check_hash_min_size"] = 1;
    save(1);
    sender()["sending_timeout"] = 0;  // The least is 30 seconds.
    const behaviour stalls = [](peer_connection& client) {
        client.read_request();
        client.write("HTTP/1.1 100 Continue\r\n\r\n");
        client.read();
    };
    const behaviour drips = [](peer_connection& client) {
        client.read_request();
        client.write("HTTP/1.1 200 OK\r\n\r\n");
        for (int seconds = 0; seconds < 31; ++seconds) {
            client.write("[");
            poll(nullptr, 0, 1000);
        }
    };
    raw_peer server({stalls, drips, coded("[0]"), coded("[200]")});
    use_port(server.port());
    child_process process(agent());
    process.wait_for("can't check hashes");
    const pass life = end_of(std::move(process));
    EXPECT_EQ(
        life.missing({"I can't check hashes: status code: -28*", "I response status code: -28"}),
        "");
    EXPECT_EQ(stored(), 1);
    expect("I response status code: 200", 0);
}

TEST_F(server_faults, of_one_endpoint_spare_the_other) {
    config["processor"]["check_hash_min_size"] = 1;
    save(2);
    raw_peer server({coded("[0,1]"), closing(true, true), closing(true, true), coded("[200]")});
    use_port(server.port());
    expect("I response status code: -*", 1);
    expect("I can't check hashes: status code: -*", 0);
}

}  // namespace
