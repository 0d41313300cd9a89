#pragma once

#include <string>

#include <openssl/ssl.h>

namespace collector {

/// PEM files of the server's side of TLS.
struct tls_files {
    std::string ca;    ///< authorities whose clients are let in
    std::string cert;  ///< the server's certificate and what it was signed with
    std::string key;   ///< the server's key, not encrypted
};

/// Sets a context to TLS 1.2 with a client certificate that is required and verified. A handshake
/// that ends in an alert is from then on reported on standard error. Returns a sentence that says
/// what is wrong, or the empty string.
std::string configure_tls(SSL_CTX& context, const tls_files& files);

/// Common name of the client's certificate; empty when there is none.
std::string client_name(const SSL& connection);

/// Writes the bytes past the HTTP server and closes the connection, so that whatever the server
/// writes after them is lost.
void send_and_close(const SSL& connection, const std::string& bytes);

}  // namespace collector
