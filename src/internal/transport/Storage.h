#pragma once

#include <memory>
#include <optional>
#include <string>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace tev::common {

/// Where the credentials come from.
struct CredentialPlaces {
    static constexpr const char* key = "reporter-key";          ///< item of secure storage
    static constexpr const char* certificate = "reporter-crt";  ///< item of secure storage
    /// A file where it begins with "/", otherwise an item.
    static constexpr const char* authorities = "/opt/data/cert/vdca.pem";
    /// Items that are missing are installed from it.
    static constexpr const char* package = "/usr/share/sdp/tev-reporter-plugin-key/00000051.bin";
};

/// The item's bytes as they are in secure storage; nothing when it is not there. Installs nothing.
std::optional<std::string> readInstalledItem(const std::string& name);

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
