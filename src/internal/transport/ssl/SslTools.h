#pragma once

#include <memory>

#include <openssl/ssl.h>

namespace tev::transport::ssl {

/// Each puts one piece of credentials into `ctx`, which keeps its own reference. False, with a log
/// line, when OpenSSL refuses; a null key or certificate is refused without one. None throws.
bool setPrivateKey(SSL_CTX* ctx, std::shared_ptr<EVP_PKEY> key);
bool setClientCert(SSL_CTX* ctx, std::shared_ptr<X509> cert);

/// Adds the bundle's certificates, or the CRLs of elements without one, to what `ctx` trusts, to be
/// checked at the present time. An empty bundle is no failure.
bool setCertAuthority(SSL_CTX* ctx, std::shared_ptr<STACK_OF(X509_INFO)> ca);

}  // namespace tev::transport::ssl
