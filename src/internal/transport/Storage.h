#pragma once

#include <memory>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace tev::common {

/// The device's TLS credentials: key and certificate from secure storage, CA bundle from a file.
/// Nothing to do with stored reports. Read on first use, cached until the process exits. Failures
/// are logged, never thrown, and answer null. The caches have no lock: one thread at a time makes
/// TLS handshakes.
/// Kept: what could not be read is tried again at the next call, which is of no use for the
/// certificate. A session asks for CA bundle, key and certificate, in this order. Once the bundle
/// is there, only the last of them would read the certificate again, and the key fails before, as
/// its passphrase comes from the certificate's text. So a certificate that is missing when the
/// bundle is read is missing until the process ends. Text of a key or a certificate is kept even
/// where it does not parse.
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
