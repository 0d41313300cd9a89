#pragma once

#include <string>
#include <vector>

#include "doctor/connection.h"
#include "doctor/examination.h"

namespace report_tool::doctor {

/// What one handshake showed.
struct handshake {
    bool finished = false;
    std::string protocol;
    std::string cipher;

    /// Subjects as the server sent them, its own first, and what the first of them says.
    std::vector<std::string> chain;
    std::string certificate;
    std::string names;
    bool host_fits = false;

    int verify_error = 0;  ///< as X509_V_ERR_…, the first
    int verify_depth = 0;
    std::string verified;  ///< whom the error is about

    bool certificate_wanted = false;  ///< the server asked for ours

    /// How it ended when it did not finish, or what came right behind it: "silent", "closed" or
    /// "refused"; empty when nothing came.
    std::string end;
    int reason = 0;       ///< as SSL_R_…
    std::string message;  ///< OpenSSL's for it
};

/// Shakes hands over a connected socket as the agent does, with the device's own credentials, and
/// listens a moment for a refusal behind it. Throws std::runtime_error when OpenSSL fails.
handshake shake_hands(int socket, const std::string& host, const deadline& end);

}  // namespace report_tool::doctor
