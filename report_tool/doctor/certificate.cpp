#include "doctor/certificate.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <ctime>

#include <memory>
#include <utility>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include "content.h"
#include "output.h"

namespace report_tool::doctor {
namespace {

constexpr long long day_seconds = 86400;

std::function<std::string(const std::string&)>& shown_name() {
    static std::function<std::string(const std::string&)> shown = printable;
    return shown;
}

std::string text_of(const X509_NAME* name) {
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    if (bio == nullptr || X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253) < 0) {
        return "?";
    }
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return shown_name()({text, static_cast<std::size_t>(size)});
}

// The whole range of dates also where time_t has 32 bits.
long long seconds_of(const ASN1_TIME* time) {
    const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> epoch(ASN1_TIME_set(nullptr, 0),
                                                                      ASN1_TIME_free);
    int days = 0;
    int seconds = 0;
    ASN1_TIME_diff(&days, &seconds, epoch.get(), time);
    return days * day_seconds + seconds;
}

std::string fingerprint(const X509* certificate) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    X509_digest(certificate, EVP_sha256(), digest, &size);
    return hex({digest, digest + size});
}

std::string text_of(const GENERAL_NAME* name) {
    const ASN1_STRING* const value = name->d.ia5;
    const unsigned char* const bytes = ASN1_STRING_get0_data(value);
    const auto size = static_cast<std::size_t>(ASN1_STRING_length(value));
    if (name->type == GEN_DNS) {
        return printable({reinterpret_cast<const char*>(bytes), size});
    }
    // A certificate may hold any number of bytes for an address.
    if (size != sizeof(in_addr) && size != sizeof(in6_addr)) {
        return "?";
    }
    char address[INET6_ADDRSTRLEN] = "";
    inet_ntop(size == sizeof(in_addr) ? AF_INET : AF_INET6, bytes, address, sizeof address);
    return address;
}

}  // namespace

void show_names_as(std::function<std::string(const std::string&)> shown) {
    shown_name() = std::move(shown);
}

std::string name_of(const X509* certificate) {
    return text_of(X509_get_subject_name(certificate));
}

validity validity_of(const X509* certificate) {
    return {name_of(certificate), seconds_of(X509_get0_notBefore(certificate)),
            seconds_of(X509_get0_notAfter(certificate))};
}

std::string describe(const X509* certificate) {
    const validity dates = validity_of(certificate);
    const long long left = dates.until - std::time(nullptr);
    const std::string days = counted(static_cast<std::size_t>(std::abs(left) / day_seconds), "day");
    return name_of(certificate) + ", issued by " + text_of(X509_get_issuer_name(certificate)) +
           ", SHA-256 " + fingerprint(certificate) + ", from " + readable_time(dates.from) +
           " to " + readable_time(dates.until) + ", " +
           (left >= 0 ? days + " left" : "ended " + days + " ago");
}

std::string names_in(const X509* certificate) {
    const std::unique_ptr<GENERAL_NAMES, decltype(&GENERAL_NAMES_free)> names(
        static_cast<GENERAL_NAMES*>(
            X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)),
        GENERAL_NAMES_free);
    std::string text;
    for (int at = 0; names != nullptr && at < sk_GENERAL_NAME_num(names.get()); ++at) {
        const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names.get(), at);
        if (name->type == GEN_DNS || name->type == GEN_IPADD) {
            text += (text.empty() ? "" : ", ") + text_of(name);
        }
    }
    return text.empty() ? "none" : text;
}

}  // namespace report_tool::doctor
