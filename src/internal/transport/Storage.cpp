#include "internal/transport/Storage.h"

#include <climits>
#include <cstddef>
#include <cstring>
#include <string>

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <sdp_installer.h>
#include <ss_client.h>

#include "common.h"
#include "logging.h"

namespace tev::common {
namespace {

const std::string KEY_ALIAS = CredentialPlaces::key;
const std::string CRT_ALIAS = CredentialPlaces::certificate;
const std::string CA_ALIAS = CredentialPlaces::authorities;
const std::string KEY_PACKAGE = CredentialPlaces::package;

std::string gpClientCert;
std::shared_ptr<X509> deviceCert;
std::shared_ptr<STACK_OF(X509_INFO)> caCert;

using MemoryBio = std::unique_ptr<BIO, decltype(&BIO_free)>;

MemoryBio makeBio() {
    return {BIO_new(BIO_s_mem()), BIO_free};
}

// True when the whole text went in. OpenSSL counts in int.
bool writeText(BIO* bio, const std::string& text) {
    if (text.size() > INT_MAX) {
        return false;
    }
    const int size = static_cast<int>(text.size());
    return size == 0 || BIO_write(bio, text.data(), size) == size;
}

// Stands in for a passphrase callback, or OpenSSL would ask for one at the terminal.
char noPassphrase[] = "";

std::shared_ptr<STACK_OF(X509_INFO)> parseBundle(BIO* bio, const std::string& text) {
    if (!writeText(bio, text)) {
        return nullptr;
    }
    std::shared_ptr<STACK_OF(X509_INFO)> bundle(
        PEM_X509_INFO_read_bio(bio, nullptr, nullptr, noPassphrase),
        [](STACK_OF(X509_INFO) * stack) { sk_X509_INFO_pop_free(stack, X509_INFO_free); });
    // A text without any PEM block is a failure here; to OpenSSL it is an empty stack.
    return bundle != nullptr && sk_X509_INFO_num(bundle.get()) > 0 ? bundle : nullptr;
}

std::shared_ptr<X509> parseCertificate(BIO* bio, const std::string& text) {
    if (!writeText(bio, text)) {
        return nullptr;
    }
    return {PEM_read_bio_X509(bio, nullptr, nullptr, noPassphrase), X509_free};
}

// The key's passphrase is the start of the certificate's Base64 text, after the first line of 28
// bytes.
int callbackPrivateKeyPass(char* buf, int size, int /*rwflag*/, void* /*userdata*/) noexcept {
    constexpr std::size_t firstLine = 28;
    constexpr int length = 64;
    if (size < length) {
        // Kept: "too long", for a limit that is too short.
        REPORTER_ERROR("PassPhraseLimit is too long - break");
        return 0;
    }
    if (gpClientCert.size() < firstLine + length) {
        return 0;
    }
    std::memcpy(buf, gpClientCert.data() + firstLine, length);
    return length;
}

std::shared_ptr<EVP_PKEY> parsePrivateKey(BIO* bio, const std::string& text) {
    if (!writeText(bio, text)) {
        return nullptr;
    }
    return {PEM_read_bio_PrivateKey(bio, nullptr, callbackPrivateKeyPass, nullptr), EVP_PKEY_free};
}

/// What secure storage answered for one item; gives the buffer back.
class StoredItem {
public:
    StoredItem() = default;
    StoredItem(const StoredItem&) = delete;
    StoredItem& operator=(const StoredItem&) = delete;
    ~StoredItem() { release(); }

    bool read(const std::string& name, const ss_credential_s& credential) {
        release();
        if (ss_read(name.c_str(), &credential, &bytes, &size) == 0) {
            return true;
        }
        // What a failed read leaves here must not be freed.
        bytes = nullptr;
        size = 0;
        return false;
    }
    bool empty() const { return bytes == nullptr || size == 0; }
    std::string text() const { return {reinterpret_cast<const char*>(bytes), size}; }

private:
    void release() {
        if (bytes != nullptr) {
            ss_free_buffer(bytes);
        }
        bytes = nullptr;
        size = 0;
    }

    unsigned char* bytes = nullptr;
    std::size_t size = 0;
};

bool installKeyPackage() {
    constexpr int mode = 2;
    constexpr int tryAgain = 2;
    int answer = sdp_install_from_file(KEY_PACKAGE.c_str(), mode, 0);
    if (answer == tryAgain) {
        answer = sdp_install_from_file(KEY_PACKAGE.c_str(), mode, 0);
    }
    return answer == 0;
}

bool initCredential(ss_credential_s& credential) {
    constexpr unsigned int identity[5] = {0x11111111, 0x22222222, 0x33333333, 0x44444444,
                                          0x05555555};
    credential = {};
    if (ss_init_credential(&credential, identity, 1, 0) != 0) {
        REPORTER_ERROR("ss_init_credential FAIL");
        return false;
    }
    return true;
}

std::string ReadFromSecureStorage(const std::string& name) {
    ss_credential_s credential;
    if (!initCredential(credential)) {
        return {};
    }
    StoredItem item;
    bool found = item.read(name, credential);
    if (!found && installKeyPackage()) {
        found = item.read(name, credential);
    }
    if (!found || item.empty()) {
        REPORTER_ERROR("ss_read FAIL");
        return {};
    }
    REPORTER_INFO("ss_read SUCCESS: " << name);
    return item.text();
}

}  // namespace

std::optional<std::string> readInstalledItem(const std::string& name) {
    ss_credential_s credential;
    StoredItem item;
    if (!initCredential(credential) || !item.read(name, credential)) {
        return std::nullopt;
    }
    return item.empty() ? std::string() : item.text();
}

void InitCertificates() {
    const MemoryBio bioCA = makeBio();
    if (bioCA == nullptr) {
        REPORTER_ERROR("!bioCA");
    } else {
        std::string text;
        if (CA_ALIAS.compare(0, 1, "/") == 0) {
            REPORTER_INFO("read CA from file: " << CA_ALIAS);
            text = reporter::read_file_default(CA_ALIAS, "");
        } else {
            text = ReadFromSecureStorage(CA_ALIAS);
        }
        REPORTER_INFO("CA size: " << text.size());
        if (auto bundle = parseBundle(bioCA.get(), text)) {
            caCert = std::move(bundle);
        } else {
            REPORTER_ERROR("PEM_X509_INFO_read_bio failed");
        }
    }

    const MemoryBio bioClient = makeBio();
    if (bioClient == nullptr) {
        REPORTER_ERROR("!bioClient");
        return;
    }
    if (gpClientCert.empty()) {
        gpClientCert = ReadFromSecureStorage(CRT_ALIAS);
    }
    if (gpClientCert.empty()) {
        return;
    }
    if (auto certificate = parseCertificate(bioClient.get(), gpClientCert)) {
        deviceCert = std::move(certificate);
    } else {
        REPORTER_ERROR("PEM_read_bio_X509 failed...");
    }
}

std::shared_ptr<STACK_OF(X509_INFO)> Storage::GetCA() {
    if (caCert == nullptr) {
        InitCertificates();
    }
    return caCert;
}

std::shared_ptr<X509> Storage::GetDeviceCertificate() {
    if (deviceCert == nullptr) {
        InitCertificates();
    }
    return deviceCert;
}

std::shared_ptr<EVP_PKEY> Storage::GetPrivateKey() {
    static std::string devicePrivateKey;
    const MemoryBio bio = makeBio();
    if (bio == nullptr) {
        REPORTER_ERROR("!bio");
        return nullptr;
    }
    if (devicePrivateKey.empty()) {
        devicePrivateKey = ReadFromSecureStorage(KEY_ALIAS);
    }
    if (devicePrivateKey.empty()) {
        REPORTER_ERROR("devicePrivateKey is empty");
        return nullptr;
    }
    auto key = parsePrivateKey(bio.get(), devicePrivateKey);
    if (key == nullptr) {
        REPORTER_ERROR("PEM_read_bio_PrivateKey FAILED...");
        return nullptr;
    }
    REPORTER_INFO("pkey is not nullptr: ");
    return key;
}

}  // namespace tev::common
