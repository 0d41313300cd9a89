#include "internal/transport/ssl/SslTools.h"

#include <ctime>

#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include "logging.h"

namespace tev::transport::ssl {

bool setPrivateKey(SSL_CTX* ctx, std::shared_ptr<EVP_PKEY> key) {
    if (key == nullptr) {
        return false;
    }
    if (SSL_CTX_use_PrivateKey(ctx, key.get()) != 1) {
        REPORTER_ERROR("Error accepting PrivateKey");
        return false;
    }
    return true;
}

bool setCertAuthority(SSL_CTX* ctx, std::shared_ptr<STACK_OF(X509_INFO)> ca) {
    if (ca == nullptr) {
        REPORTER_ERROR("PEM_X509_INFO_read_bio failed");
        return false;
    }
    X509_STORE* const store = SSL_CTX_get_cert_store(ctx);
    if (store == nullptr) {
        REPORTER_WARN("error: no cert store");
        return false;
    }
    for (int i = 0; i < sk_X509_INFO_num(ca.get()); ++i) {
        const X509_INFO* const element = sk_X509_INFO_value(ca.get(), i);
        if (element == nullptr) {
            REPORTER_WARN("error: no X509_INFO in cert store");
            continue;
        }
        // Kept: revocation lists are stored, but OpenSSL is not told to consult them.
        if (element->x509 != nullptr) {
            X509_VERIFY_PARAM_set_time(X509_STORE_get0_param(store), std::time(nullptr));
            if (X509_STORE_add_cert(store, element->x509) != 1) {
                REPORTER_ERROR("error adding x509 certificate");
                return false;
            }
        } else if (element->crl != nullptr && X509_STORE_add_crl(store, element->crl) != 1) {
            REPORTER_ERROR("error adding CRL certificate");
            return false;
        }
    }
    return true;
}

bool setClientCert(SSL_CTX* ctx, std::shared_ptr<X509> cert) {
    if (cert == nullptr) {
        return false;
    }
    if (SSL_CTX_use_certificate(ctx, cert.get()) != 1) {
        REPORTER_WARN("error setting client certificate");
        return false;
    }
    return true;
}

}  // namespace tev::transport::ssl
