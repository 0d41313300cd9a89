#include "doctor.h"
#include "support/raw_peer.h"

namespace {

using namespace test_support;

using doctor = doctor_test;

TEST_F(doctor, tells_what_the_server_does) {
    std::optional<raw_peer> peer;
    std::optional<listener> bare;
    const auto served = [&](const peer_identity& identity) {
        return [&, identity] {
            peer.reset();
            peer.emplace(std::vector<behaviour>{[](peer_connection& client) { client.read(); }},
                         identity);
            set("server_port", std::to_string(peer->port()));
        };
    };
    const auto listening = [&](int backlog) {
        return [&, backlog] {
            bare.emplace(backlog);
            set("server_port", std::to_string(bare->port()));
        };
    };
    const auto client = [&](const std::string& name) {
        return [&, name] {
            write_text(item("reporter-crt"), pki(name + ".pem"));
            write_text(item("reporter-key"), pki(name + ".key"));
            use_collector();
            agent();
        };
    };
    const auto trusting = [&](const char* authorities, const char* server) {
        return [&, authorities, server] {
            write_text(CA, pki(authorities));
            served({server})();
        };
    };
    raw_peer proxy({[](peer_connection& asking) {
                        asking.read();
                        asking.write("HTTP/1.1 407 Who are you?\r\n\r\n");
                    },
                    [](peer_connection& asking) {
                        asking.read();
                        asking.write("HTTP/1.");
                    }},
                   {""});
    const peer_identity newer{"server.pem", 0, "ALL", TLS1_3_VERSION};
    expect_each(
        {
            {"server.client_certificate ok", 0, served({})},
            {"server.certificate fault expired", 1, served({"server-expired.pem"})},
            {"server.certificate fault not-yet-valid", 1, served({"server-not-yet-valid.pem"})},
            {"server.certificate fault untrusted", 1, served({"server-other-ca.pem"})},
            {"server.certificate fault untrusted", 1, served({"server-self-signed.pem"})},
            {"server.certificate fault host", 1, served({"server-other-host.pem"})},
            {"server.certificate fault host", 1, served({"server-short-address.pem"})},
            {"server.certificate fault expired | certificate has expired, about CN=Former "
             "authority",
             1, trusting("expired-ca.pem", "server-of-expired-ca.pem")},
            {"server.tls fault protocol", 1, served(newer)},
            {"server.tls fault ciphers", 1, served({"server.pem", TLS1_1_VERSION})},
            {"server.tls fault ciphers", 1, served({"server.pem", TLS1_2_VERSION, "aNULL"})},
            {"server.tls fault no-tls", 1,
             [&] {
                 served({""})();
                 const behaviour speak = [](peer_connection& c) {
                     c.write("220 mail.example\r\n");
                 };
                 peer.reset();
                 peer.emplace(std::vector<behaviour>{speak}, peer_identity{""});
                 set("server_port", std::to_string(peer->port()));
             }},
            {"server.client_certificate fault refused", 1, client("client-other-ca")},
            {"server.client_certificate fault refused", 1, client("client-expired")},
            {"server.tls skipped", 3,
             [&] {
                 served({})();
                 set_vconf("db/menu/homedeck/homedatacontrol/defaultdisclaimeragree", 0);
             }},
            {"server.tcp fault refused", 1, listening(-1)},
            {"server.name fault unknown", 1, [&] { set("server_url", "https://nobody.invalid"); }},
            {"server.proxy_tcp fault refused",
             1,
             listening(-1),
             {"https_proxy=http://127.0.0.1:1", "no_proxy=example.com"}},
            {"server.proxy_connect fault proxy | the proxy lets nothing through: HTTP/1.1 407 Who",
             1,
             [] {},
             {"https_proxy=http://127.0.0.1:" + std::to_string(proxy.port())}},
            {"server.proxy_connect fault proxy | the proxy lets nothing through: HTTP/1. |",
             1,
             [] {},
             {"https_proxy=http://127.0.0.1:" + std::to_string(proxy.port())}},
        },
        {"--timeout", "20"});
    expect_each({{"server.tls fault silent", 1, listening(16)},
                 {"server.tcp fault silent", 1, listening(0)},
                 {"server.name fault silent",
                  1,
                  [&] { set("server_url", "https://nobody.invalid"); },
                  {"TEV_SILENT_RESOLVER=1"}}},
                {"--timeout", "1"});
}

TEST_F(doctor, asks_both_paths) {
    std::optional<raw_peer> peer;
    const auto answered = [&](const std::string& status) {
        return [&, status] {
            const behaviour probed = [](peer_connection& client) { client.read(); };
            peer.reset();
            peer.emplace(std::vector<behaviour>{probed, answering(answer("{\"body\":[]}")),
                                                answering(answer("{\"body\":[]}", status))});
            set("server_port", std::to_string(peer->port()));
        };
    };
    expect_each(
        {
            {"server.reports_path ok", 0, answered("200 OK")},
            {"server.reports_path fault not-found", 1, answered("404 Not Found")},
            {"server.reports_path fault unavailable", 1, answered("503 Service Unavailable")},
        },
        {"--ask"});
    EXPECT_NE(peer->stop().find("\"body\":[]"), std::string::npos);
}

}  // namespace
