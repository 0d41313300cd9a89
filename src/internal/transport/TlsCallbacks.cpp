#include "internal/transport/TlsCallbacks.h"

#include <exception>
#include <memory>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include "internal/transport/Storage.h"
#include "internal/transport/ssl/SslTools.h"
#include "logging.h"

namespace tev::transport {
namespace {

using common::Storage;

// Empties OpenSSL's queue of errors, or the next handshake on this thread would take them for its
// own.
struct ErrorQueueGuard {
    ErrorQueueGuard() = default;
    ErrorQueueGuard(const ErrorQueueGuard&) = delete;
    ErrorQueueGuard& operator=(const ErrorQueueGuard&) = delete;
    ~ErrorQueueGuard() { ERR_clear_error(); }
};

// Puts an empty store with the same parameters in the place of libcurl's. Older versions fill
// theirs before this callback, in some builds with the system's CAs when no file is named.
bool dropInheritedTrust(SSL_CTX* ctx) {
    X509_STORE* const inherited = SSL_CTX_get_cert_store(ctx);
    std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> empty(X509_STORE_new(),
                                                                  X509_STORE_free);
    if (empty == nullptr ||
        (inherited != nullptr &&
         X509_STORE_set1_param(empty.get(), X509_STORE_get0_param(inherited)) != 1)) {
        return false;
    }
    SSL_CTX_set_cert_store(ctx, empty.release());
    return true;
}

}  // namespace

bool installCredentials(SSL_CTX* ctx) {
    const ErrorQueueGuard guard;
    if (!dropInheritedTrust(ctx) || !ssl::setCertAuthority(ctx, Storage::GetCA())) {
        REPORTER_ERROR("use_caroot fail");
        return false;
    }
    if (!ssl::setPrivateKey(ctx, Storage::GetPrivateKey())) {
        REPORTER_ERROR("use_pkey fail");
        return false;
    }
    if (!ssl::setClientCert(ctx, Storage::GetDeviceCertificate()) ||
        // OpenSSL drops a key that does not fit the certificate and reports success.
        SSL_CTX_check_private_key(ctx) != 1) {
        REPORTER_ERROR("use_clientcert fail");
        return false;
    }
    // libcurl's option is only a minimum, and the cipher list means nothing to TLS 1.3.
    return SSL_CTX_set_max_proto_version(ctx, TLS1_2_VERSION) == 1;
}

int clientCertCallback(SSL* /*ssl*/, X509** cert, EVP_PKEY** key) {
    const ErrorQueueGuard guard;
    *cert = nullptr;
    *key = nullptr;
    try {
        // The certificate first: the key's passphrase comes from its text.
        const std::shared_ptr<X509> certificate = Storage::GetDeviceCertificate();
        const std::shared_ptr<EVP_PKEY> privateKey = Storage::GetPrivateKey();
        if (certificate == nullptr || privateKey == nullptr) {
            return 0;
        }
        X509_up_ref(certificate.get());
        EVP_PKEY_up_ref(privateKey.get());
        *cert = certificate.get();
        *key = privateKey.get();
        return 1;
    } catch (const std::exception&) {
        return 0;
    }
}

int caCertCallback(SSL_CTX* ctx) {
    const ErrorQueueGuard guard;
    try {
        return ssl::setCertAuthority(ctx, Storage::GetCA()) ? 1 : 0;
    } catch (const std::exception&) {
        return 0;
    }
}

}  // namespace tev::transport
