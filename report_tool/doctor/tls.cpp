#include "doctor/tls.h"

#include <arpa/inet.h>
#include <poll.h>

#include <csignal>

#include <memory>
#include <stdexcept>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include "doctor/certificate.h"
#include "internal/transport/HttpSession.h"
#include "internal/transport/TlsCallbacks.h"

namespace report_tool::doctor {
namespace {

// How long a server that refuses our certificate behind the handshake takes to say so.
constexpr int refusal_ms = 500;

using context_handle = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;
using connection_handle = std::unique_ptr<SSL, decltype(&SSL_free)>;

void note_certificate(handshake& seen, const STACK_OF(X509) * chain, const X509* own) {
    seen.chain.clear();
    for (int at = 0; at < sk_X509_num(chain); ++at) {
        seen.chain.push_back(name_of(sk_X509_value(chain, at)));
    }
    seen.certificate = describe(own);
    seen.names = names_in(own);
}

// Ends the handshake at the first error, as the agent's ends: nothing of ours goes to a server that
// is not trusted.
int on_verify(int sound, X509_STORE_CTX* store) {
    const auto* const tls = static_cast<const SSL*>(
        X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto& seen = *static_cast<handshake*>(SSL_get_app_data(tls));
    note_certificate(seen, X509_STORE_CTX_get0_untrusted(store), X509_STORE_CTX_get0_cert(store));
    if (sound != 1) {
        seen.verify_error = X509_STORE_CTX_get_error(store);
        seen.verify_depth = X509_STORE_CTX_get_error_depth(store);
        const X509* const about = X509_STORE_CTX_get_current_cert(store);
        seen.verified = about != nullptr ? name_of(about) : "";
    }
    return sound;
}

// Called only when the server asks for a certificate.
int on_wanted(SSL* /*tls*/, void* seen) {
    static_cast<handshake*>(seen)->certificate_wanted = true;
    return 1;
}

// What libcurl sets up before it calls the agent, and then the agent's own part.
context_handle make_context() {
    context_handle context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    if (context == nullptr) {
        throw std::runtime_error("OpenSSL makes no context");
    }
    X509_STORE_set_flags(SSL_CTX_get_cert_store(context.get()),
                         X509_V_FLAG_TRUSTED_FIRST | X509_V_FLAG_PARTIAL_CHAIN);
    if (SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1 ||
        SSL_CTX_set_cipher_list(context.get(), tev::transport::cipherList) != 1 ||
        !tev::transport::installCredentials(context.get())) {
        throw std::runtime_error("OpenSSL does not take the device's credentials");
    }
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, on_verify);
    return context;
}

bool is_address(const std::string& host) {
    unsigned char bytes[sizeof(in6_addr)];
    return inet_pton(AF_INET, host.c_str(), bytes) == 1 ||
           inet_pton(AF_INET6, host.c_str(), bytes) == 1;
}

bool fits_host(const SSL* tls, const std::string& host) {
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(SSL_get_peer_certificate(tls),
                                                                  X509_free);
    if (certificate == nullptr) {
        return false;
    }
    return is_address(host)
               ? X509_check_ip_asc(certificate.get(), host.c_str(), 0) == 1
               : X509_check_host(certificate.get(), host.data(), host.size(), 0, nullptr) == 1;
}

// Repeats the step until it succeeds; otherwise notes how it ended.
template <class Step>
bool carry_out(SSL* tls, const deadline& end, int at_most_ms, handshake& seen, Step step) {
    for (;;) {
        ERR_clear_error();
        const int result = step();
        if (result > 0) {
            return true;
        }
        const int error = SSL_get_error(tls, result);
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
            const short events = error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT;
            if (end.wait_for(SSL_get_fd(tls), events, at_most_ms)) {
                continue;
            }
            seen.end = "silent";
            return false;
        }
        const unsigned long code = ERR_peek_error();
        seen.reason = ERR_GET_REASON(code);
        const char* const text = code != 0 ? ERR_reason_error_string(code) : nullptr;
        seen.message = text != nullptr ? text : "the connection was closed";
        seen.end = error == SSL_ERROR_SSL ? "refused" : "closed";
        return false;
    }
}

void listen_for_refusal(SSL* tls, const deadline& end, handshake& seen) {
    char byte = 0;
    if (carry_out(tls, end, refusal_ms, seen, [&] { return SSL_read(tls, &byte, 1); }) ||
        seen.end == "silent") {
        seen.end.clear();
    }
}

}  // namespace

handshake shake_hands(int socket, const std::string& host, const deadline& end) {
    std::signal(SIGPIPE, SIG_IGN);
    handshake seen;
    const context_handle context = make_context();
    SSL_CTX_set_cert_cb(context.get(), on_wanted, &seen);
    const connection_handle connection(SSL_new(context.get()), SSL_free);
    SSL* const tls = connection.get();
    if (tls == nullptr || SSL_set_fd(tls, socket) != 1) {
        throw std::runtime_error("OpenSSL makes no connection");
    }
    SSL_set_app_data(tls, &seen);
    if (!is_address(host)) {
        SSL_set_tlsext_host_name(tls, host.c_str());
    }
    seen.finished = carry_out(tls, end, -1, seen, [&] { return SSL_connect(tls); });
    if (seen.finished) {
        seen.protocol = SSL_get_version(tls);
        seen.cipher = SSL_get_cipher_name(tls);
        seen.host_fits = fits_host(tls, host);
        listen_for_refusal(tls, end, seen);
        SSL_shutdown(tls);
    }
    ERR_clear_error();
    return seen;
}

}  // namespace report_tool::doctor
