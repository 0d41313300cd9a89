#include "tls.h"

#include <sys/socket.h>
#include <cerrno>
#include <cstdio>

#include <array>
#include <fstream>
#include <memory>
#include <system_error>

#include <openssl/err.h>
#include <openssl/x509.h>

namespace collector {
namespace {

using x509_owner = std::unique_ptr<X509, decltype(&X509_free)>;

std::string unreadable(const std::string& what, const std::string& path) {
    return std::ifstream(path)
               ? ""
               : "cannot read " + what + " " + path + ": " + std::generic_category().message(errno);
}

std::string unusable(const std::string& what, const std::string& path) {
    const char* const reason = ERR_reason_error_string(ERR_peek_error());
    ERR_clear_error();
    return "cannot use " + what + " " + path + ": " + (reason != nullptr ? reason : "not PEM");
}

/// Stands in for OpenSSL's own callback, which asks at the terminal.
int no_passphrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*data*/) {
    return 0;
}

void tell_alert(const SSL* /*connection*/, int where, int alert) {
    if ((where & SSL_CB_ALERT) == 0 || *SSL_alert_type_string(alert) != 'F') {
        return;
    }
    std::fprintf(stderr, "TLS alert %s: %s\n", (where & SSL_CB_READ) != 0 ? "received" : "sent",
                 SSL_alert_desc_string_long(alert));
}

}  // namespace

std::string configure_tls(SSL_CTX& context, const tls_files& files) {
    const std::array<std::string, 3> faults = {unreadable("the CA", files.ca),
                                               unreadable("the certificate", files.cert),
                                               unreadable("the key", files.key)};
    for (const std::string& fault : faults) {
        if (!fault.empty()) {
            return fault;
        }
    }

    SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION);
    SSL_CTX_set_max_proto_version(&context, TLS1_2_VERSION);
    // Nothing is resumed, so that each connection shows its certificate anew.
    SSL_CTX_set_session_cache_mode(&context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_options(&context, SSL_OP_NO_TICKET);
    SSL_CTX_set_verify(&context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_default_passwd_cb(&context, no_passphrase);
    SSL_CTX_set_info_callback(&context, tell_alert);

    if (SSL_CTX_load_verify_locations(&context, files.ca.c_str(), nullptr) != 1) {
        return unusable("the CA", files.ca);
    }
    SSL_CTX_set_client_CA_list(&context, SSL_load_client_CA_file(files.ca.c_str()));
    if (SSL_CTX_use_certificate_chain_file(&context, files.cert.c_str()) != 1) {
        return unusable("the certificate", files.cert);
    }
    if (SSL_CTX_use_PrivateKey_file(&context, files.key.c_str(), SSL_FILETYPE_PEM) != 1) {
        return unusable("the key", files.key);
    }
    return "";
}

std::string client_name(const SSL& connection) {
    const x509_owner certificate(SSL_get_peer_certificate(&connection), X509_free);
    if (certificate == nullptr) {
        return "";
    }
    std::array<char, 256> name{};
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate.get()), NID_commonName, name.data(),
                              static_cast<int>(name.size()));
    return name.data();
}

void send_and_close(const SSL& connection, const std::string& bytes) {
    // The HTTP server hands its connection out for reading; it writes nothing while the handler
    // runs.
    auto* const writable = const_cast<SSL*>(&connection);
    if (!bytes.empty()) {
        SSL_write(writable, bytes.data(), static_cast<int>(bytes.size()));
    }
    shutdown(SSL_get_fd(&connection), SHUT_RDWR);
}

}  // namespace collector
