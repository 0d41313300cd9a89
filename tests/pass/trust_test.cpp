#include <tuple>

#include <openssl/x509_vfy.h>

#include "internal/transport/HttpSession.h"
#include "internal/transport/TlsCallbacks.h"
#include "support/agent_run.h"
#include "support/raw_peer.h"

namespace {

using namespace test_support;

namespace fs = std::filesystem;

const char* const NO_TLS = "I response status code: -35";
const char* const NO_TRUST = "I response status code: -60";

class trust : public pass_test {
protected:
    // The peer gets no byte of a request, and the report stays stored.
    void expect_silence(const peer_identity& identity, const std::string& line) {
        raw_peer server({[](peer_connection& client) {
                            client.read();
                            client.write(answer(""));
                        }},
                        identity);
        use_port(server.port());
        expect(line, 1);
        EXPECT_TRUE(identity.certificate.empty() || server.stop().empty());
        EXPECT_EQ(server.stop().find("POST"), std::string::npos);
    }
};

TEST_F(trust, needs_a_sound_server) {
    save(1);
    for (const char* fault :
         {"self-signed", "other-ca", "expired", "not-yet-valid", "other-host", "name-in-cn"}) {
        expect_silence({std::string("server-") + fault + ".pem"}, NO_TRUST);
    }
    expect_silence({"server.pem", TLS1_VERSION}, NO_TLS);
    expect_silence({"server.pem", TLS1_1_VERSION}, NO_TLS);
    for (const char* ciphers :
         {"ECDHE-ECDSA-AES256-GCM-SHA384", "ECDHE-ECDSA-AES128-SHA", "aNULL"}) {
        expect_silence({"server.pem", TLS1_2_VERSION, ciphers}, NO_TLS);
    }
    expect_silence({""}, NO_TLS);
    // What the address asks for is done: with a cipher of the list, or without any protection.
    const behaviour take = answering(answer("{\"body\":[200]}"));
    raw_peer fair({take}, {"server.pem", TLS1_2_VERSION, "ECDHE-ECDSA-AES128-GCM-SHA256"});
    use_port(fair.port());
    expect("I response status code: 200", 0);
    save(1);
    raw_peer bare({take}, {""});
    use_port(bare.port());
    sender()["server_url"] = "http://127.0.0.1";
    expect("I response status code: 200", 0);
}

TEST_F(trust, needs_sound_credentials) {
    const std::string ca = "/opt/data/cert/vdca.pem", garbage(2000, '#');
    const std::string crt = platform_dir() / "secure_storage" / "reporter-crt";
    const std::string key = platform_dir() / "secure_storage" / "reporter-key";
    const auto made = [](const char* name) { return read_text(pki_dir() + "/" + name); };
    const std::string no_ca = "E use_caroot fail", no_key = "E PEM_read_bio_PrivateKey FAILED...";
    const std::tuple<std::string, std::string, std::string> faults[] = {
        {ca, "", no_ca},
        {ca, garbage, no_ca},
        {ca, made("ca.pem").substr(0, 300), no_ca},
        {ca, made("crl.pem"), NO_TRUST},
        {ca, made("other-ca.pem"), NO_TRUST},
        {key, "", "E devicePrivateKey is empty"},
        {key, garbage, no_key},
        {key, made("client-other-ca.key"), no_key},
        {key, made("server.key"), "E use_clientcert fail"},
        {crt, "", no_key},
        {crt, garbage, no_key},
    };
    save(1);
    for (const auto& [file, content, line] : faults) {
        SCOPED_TRACE(file + content);
        const std::string sound = read_text(file);
        write_text(file, content);
        expect_silence({}, line);
        std::filesystem::remove(file);
        expect_silence({}, file == ca ? no_ca : "E ss_read FAIL");
        write_text(file, sound);
    }
    // The server does not trust these. With the older protocol it says so before the request.
    for (const std::string client : {"client-expired", "client-other-ca"}) {
        write_text(crt, made((client + ".pem").c_str()));
        write_text(key, made((client + ".key").c_str()));
        expect_silence({"server.pem", TLS1_2_VERSION}, "I response status code: -*");
    }
}

// The rest is asked of this process, not of the agent.
TEST_F(trust, has_the_same_credentials_for_all_callbacks) {
    using namespace tev::transport;
    const std::string ca = "/opt/data/cert/vdca.pem";
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(
        SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    const auto trusted = [&context] {
        return sk_X509_OBJECT_num(X509_STORE_get0_objects(SSL_CTX_get_cert_store(context.get())));
    };
    X509* certificate = nullptr;
    EVP_PKEY* key = nullptr;
    fs::rename(platform_dir() / "secure_storage", platform_dir() / "other_package");
    fs::remove(ca);
    EXPECT_EQ(clientCertCallback(nullptr, &certificate, &key), 0);
    EXPECT_EQ(caCertCallback(context.get()), 0);

    fs::rename(platform_dir() / "other_package", platform_dir() / "package");
    write_text(ca, read_text(pki_dir() + "/ca.pem"));
    EXPECT_EQ(clientCertCallback(nullptr, &certificate, &key), 1);
    EXPECT_EQ(X509_check_private_key(certificate, key), 1);
    X509_free(certificate);
    EVP_PKEY_free(key);
    SSL_CTX_load_verify_locations(context.get(), (pki_dir() + "/other-ca.pem").c_str(), nullptr);
    EXPECT_EQ(caCertCallback(context.get()), 1);
    EXPECT_EQ(trusted(), 2);
    EXPECT_EQ(HttpSession::sslctxfun(nullptr, context.get(), this), CURLE_OK);
    EXPECT_EQ(trusted(), 1) << "what was there before is dropped";
    EXPECT_EQ(SSL_CTX_check_private_key(context.get()), 1);
}

}  // namespace

// A package that is installed by the second try.
extern "C" int sdp_install_from_file(const char*, int, int) {
    static int tries = 0;
    if (!fs::exists(platform_dir() / "package") || ++tries < 2) {
        return 2;
    }
    fs::rename(platform_dir() / "package", platform_dir() / "secure_storage");
    return 0;
}
