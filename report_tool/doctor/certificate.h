#pragma once

#include <functional>
#include <string>

#include <openssl/x509.h>

#include "doctor/examination.h"

namespace report_tool::doctor {

/// From now on the functions below show what this makes of a subject or an issuer. Before that they
/// show it as it is.
void show_names_as(std::function<std::string(const std::string&)> shown);

std::string name_of(const X509* certificate);
validity validity_of(const X509* certificate);

/// Subject, issuer, SHA-256, dates and days left, on one line.
std::string describe(const X509* certificate);

/// DNS names and addresses for which a server's certificate holds.
std::string names_in(const X509* certificate);

}  // namespace report_tool::doctor
