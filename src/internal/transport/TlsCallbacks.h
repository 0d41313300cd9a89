#pragma once

#include <openssl/ssl.h>

namespace tev::transport {

/// The same credentials as HttpSession::sslctxfun installs, for a set-up by OpenSSL's own
/// callbacks; sessions do not use them. Neither throws. Called on the thread that makes the
/// handshake.

/// For SSL_CTX_set_client_cert_cb: 1 and one reference each to certificate and key, which the
/// caller owns, or 0 and both null.
int clientCertCallback(SSL* ssl, X509** cert, EVP_PKEY** key);

/// 1 when `ctx` trusts the CA bundle from here on, else 0.
int caCertCallback(SSL_CTX* ctx);

}  // namespace tev::transport
