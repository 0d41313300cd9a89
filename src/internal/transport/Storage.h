#pragma once

#include <memory>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace tev::common {

/// The device's TLS credentials: key and certificate from secure storage, CA bundle from a file.
/// Nothing to do with stored reports. Read on first use, cached until the process exits. Failures
/// are logged, never thrown, and answer null. The caches have no lock: one thread at a time makes
/// TLS handshakes. Kept: a certificate that is missing when the bundle is read stays missing until
/// the process ends, though each call tries again what is missing. A session asks for bundle, key
/// and certificate, in this order. With the bundle there, only the last would read the certificate
/// again; but the key fails first, as its passphrase comes from the certificate's text. Text that
/// was read is cached even where it does not parse.
class Storage {
public:
    /// A fresh object each time, parsed from the cached text. The passphrase comes from the client
    /// certificate's text, which must be loaded before: GetCA() or GetDeviceCertificate() does.
    static std::shared_ptr<EVP_PKEY> GetPrivateKey();
    static std::shared_ptr<X509> GetDeviceCertificate();
    static std::shared_ptr<STACK_OF(X509_INFO)> GetCA();
};

/// Loads CA bundle and client certificate into the caches; what fails leaves its cache as it was.
void InitCertificates();

}  // namespace tev::common
