#pragma once

#include <openssl/ssl.h>

namespace tev::transport {

// The device's TLS credentials, put into OpenSSL. Called on the thread that makes the handshake.

/// Trusted CAs, client key and certificate, and TLS 1.2 at most, for `ctx`. False, and a line in
/// the log, when one is missing. Throws only when memory is out.
bool installCredentials(SSL_CTX* ctx);

// The same for a set-up by OpenSSL's own callbacks; sessions do not use them. Neither throws.

/// For SSL_CTX_set_client_cert_cb: 1 and one reference each to certificate and key, which the
/// caller owns, or 0 and both null.
int clientCertCallback(SSL* ssl, X509** cert, EVP_PKEY** key);

/// 1 when `ctx` trusts the CA bundle from here on, else 0.
int caCertCallback(SSL_CTX* ctx);

}  // namespace tev::transport
