#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include <fstream>
#include <map>
#include <memory>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include "common.h"
#include "doctor/certificate.h"
#include "doctor/examination.h"
#include "internal/transport/Storage.h"
#include "output.h"

namespace report_tool::doctor {
namespace {

using tev::common::CredentialPlaces;
using tev::common::readInstalledItem;

using bio_handle = std::unique_ptr<BIO, decltype(&BIO_free)>;

bio_handle reader_of(const std::string& text) {
    return {BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free};
}

void examine_dates(group& points, const X509* certificate) {
    const char* const name = "certificate";
    constexpr long long soon = 30 * 86400LL;
    const validity dates = validity_of(certificate);
    const auto now = std::time(nullptr);
    if (now > dates.until) {
        points.fault(name, "expired", describe(certificate), "renew it, unless the clock is wrong");
    } else if (now < dates.from) {
        points.fault(name, "not-yet-valid", describe(certificate), "set the clock, or wait");
    } else if (dates.until - now < soon) {
        points.warning(name, "expires-soon", describe(certificate), "renew it in time");
    } else {
        points.ok(name, describe(certificate));
    }
}

void examine_authorities(examination& whole, group& points, const STACK_OF(X509_INFO) * bundle) {
    int certificates = 0, valid = 0;
    for (int at = 0; at < sk_X509_INFO_num(bundle); ++at) {
        const X509* const authority = sk_X509_INFO_value(bundle, at)->x509;
        if (authority == nullptr) {
            continue;
        }
        ++certificates;
        const validity dates = validity_of(authority);
        whole.certificates.push_back(dates);
        const bool holds = std::time(nullptr) >= dates.from && std::time(nullptr) <= dates.until;
        valid += holds ? 1 : 0;
        if (holds) {
            points.ok("authority", describe(authority));
        } else {
            points.warning("authority", "expired", describe(authority),
                           "bring a bundle with its successor, unless the clock is wrong");
        }
    }
    const std::string found = counted(static_cast<std::size_t>(certificates), "certificate") +
                              " in " + CredentialPlaces::authorities;
    if (certificates == 0) {
        points.fault("bundle", "no-certificate", found,
                     "no server is trusted: install the bundle again");
    } else if (valid == 0) {
        points.fault("bundle", "expired", found + ", none of which holds now",
                     "bring a bundle that does, unless the clock is wrong");
    } else {
        points.ok("bundle", found);
    }
}

bool examine_bundle(examination& whole, group& points) {
    const std::string path = CredentialPlaces::authorities;
    const char* const advice = "install the platform's bundle of authorities";
    if (access(path.c_str(), R_OK) != 0) {
        const bool absent = errno == ENOENT;
        points.fault("bundle", absent ? "missing" : "access", path + ": " + error_text(errno),
                     absent ? advice : "make it readable for the agent's user");
        return false;
    }
    const std::string text = reporter::read_file_default(path, "");
    if (text.empty()) {
        points.fault("bundle", "empty", path + " is empty", advice);
        return false;
    }
    char no_passphrase[] = "";
    const std::unique_ptr<STACK_OF(X509_INFO), void (*)(STACK_OF(X509_INFO)*)> bundle(
        PEM_X509_INFO_read_bio(reader_of(text).get(), nullptr, nullptr, no_passphrase),
        [](STACK_OF(X509_INFO) * stack) { sk_X509_INFO_pop_free(stack, X509_INFO_free); });
    ERR_clear_error();
    if (bundle == nullptr || sk_X509_INFO_num(bundle.get()) <= 0) {
        points.fault("bundle", "broken", path + " is no PEM", advice);
        return false;
    }
    examine_authorities(whole, points, bundle.get());
    return true;
}

// What a package in the form of a tar archive holds, by name; nothing when it is of another form or
// ends early.
std::optional<std::map<std::string, std::string>> items_in(const std::string& package) {
    constexpr std::size_t block = 512, magic_at = 257, size_at = 124, size_digits = 11;
    std::map<std::string, std::string> items;
    for (std::size_t at = 0; at + block <= package.size();) {
        if (package[at] == '\0') {
            return items;
        }
        if (package.compare(at + magic_at, 5, "ustar") != 0) {
            return std::nullopt;
        }
        std::string name = package.substr(at, package.find('\0', at) - at);
        name.erase(0, name.compare(0, 2, "./") == 0 ? 2 : 0);
        const std::size_t size =
            std::strtoul(package.substr(at + size_at, size_digits).c_str(), nullptr, 8);
        const std::size_t begin = at + block;
        if (size > package.size() - begin) {
            return std::nullopt;
        }
        items[name] = package.substr(begin, size);
        at = begin + (size + block - 1) / block * block;
    }
    return std::nullopt;
}

void examine_certificate(examination& whole, group& points, const std::string& text) {
    char no_passphrase[] = "";
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(
        PEM_read_bio_X509(reader_of(text).get(), nullptr, nullptr, no_passphrase), X509_free);
    ERR_clear_error();
    if (certificate == nullptr) {
        points.fault("certificate", text.empty() ? "empty" : "broken",
                     std::string(CredentialPlaces::certificate) + " is no PEM certificate",
                     "bring the device's key package again");
        return;
    }
    whole.certificates.push_back(validity_of(certificate.get()));
    examine_dates(points, certificate.get());
}

// Whether there is a whole PEM block, whatever it holds.
bool is_pem(const std::string& text) {
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long size = 0;
    const bool whole = PEM_read_bio(reader_of(text).get(), &name, &header, &data, &size) == 1;
    const bool is_key = whole && std::strstr(name, "PRIVATE KEY") != nullptr;
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_clear_free(data, static_cast<std::size_t>(size));
    ERR_clear_error();
    return is_key;
}

// As the agent reads it, the certificate first: the passphrase comes from its text.
bool examine_key(group& points, const std::string& text) {
    const auto certificate = tev::common::Storage::GetDeviceCertificate();
    const auto key = tev::common::Storage::GetPrivateKey();
    const bool belongs = key != nullptr && certificate != nullptr &&
                         X509_check_private_key(certificate.get(), key.get()) == 1;
    ERR_clear_error();
    const std::string item = CredentialPlaces::key;
    const char* const advice = "bring this device's key package: key and certificate go together";
    if (key != nullptr && !belongs && certificate != nullptr) {
        points.fault("key", "other", item + " opens and is not the key of the certificate", advice);
    } else if (key == nullptr && !is_pem(text)) {
        points.fault("key", text.empty() ? "empty" : "broken", item + " is no PEM key", advice);
    } else if (key == nullptr) {
        points.fault("key", "passphrase",
                     item +
                         " does not open with the text of this certificate: it was encrypted for "
                         "another, or is damaged",
                     advice);
    } else if (certificate != nullptr) {
        points.ok("key", "opens and belongs to the certificate");
    }
    return belongs;
}

// As far as that goes without installing it.
void examine_package(examination& whole, group& points, const std::string& item) {
    const std::string path = CredentialPlaces::package;
    const std::string name = item == CredentialPlaces::key ? "key" : "certificate";
    const std::string missing = item + " is not in secure storage, and ";
    if (access(path.c_str(), R_OK) != 0) {
        const bool absent = errno == ENOENT;
        points.fault(
            name, absent ? "missing" : "access",
            missing + path + ", from which it is installed: " + error_text(errno),
            absent ? "bring the device's key package" : "make it readable for the agent's user");
        return;
    }
    const auto items = items_in(reporter::read_file_default(path, ""));
    if (!items) {
        points.fault(
            name, "broken-package",
            missing + path + ", from which it is installed, is no whole tar archive",
            "bring the device's key package again, unless the platform's has another form");
    } else if (items->count(item) == 0) {
        points.fault(name, "missing", missing + "neither is it in " + path,
                     "bring the device's key package");
    } else {
        points.warning(
            name, "not-installed", missing + path + " holds it",
            "nothing: the next pass that sends installs it, and TLS can be looked at only "
            "then");
        if (item == CredentialPlaces::certificate) {
            examine_certificate(whole, points, items->at(item));
        }
    }
}

}  // namespace

void examine_credentials(examination& whole) {
    group points(whole, "credentials");
    const bool trusting = examine_bundle(whole, points);
    const auto certificate = readInstalledItem(CredentialPlaces::certificate);
    const auto key = readInstalledItem(CredentialPlaces::key);
    if (certificate) {
        examine_certificate(whole, points, *certificate);
    } else {
        examine_package(whole, points, CredentialPlaces::certificate);
    }
    if (!key) {
        examine_package(whole, points, CredentialPlaces::key);
    } else if (!certificate) {
        points.skipped("key", "its passphrase comes from the certificate, which is missing");
    } else {
        whole.credentials_usable = examine_key(points, *key) && trusting;
    }
}

}  // namespace report_tool::doctor
