#include <exception>
#include <memory>

#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include "doctor/address.h"
#include "doctor/connection.h"
#include "doctor/examination.h"
#include "doctor/requests.h"
#include "doctor/tls.h"
#include "failure.h"
#include "output.h"

namespace report_tool::doctor {
namespace {

const char* advice_for(const std::string& cause) {
    return cause == "unknown"
               ? "compare the name; look whether the network is up and a name server set"
           : cause == "refused" ? "nobody listens there, or a firewall refuses: compare the port"
           : cause == "silent"
               ? "a firewall may swallow the packets: compare address and port, try another client"
           : cause == "proxy" ? "see the proxy's log"
                              : "see to the network and its route";
}

// Name, address and connection; the server's, or the proxy's in its place.
socket_handle reach(group& points, const address& server, const deadline& end) {
    const bool direct = server.proxy_host.empty();
    const std::string host = direct ? server.host : server.proxy_host;
    const char* step = direct ? "name" : "proxy_name";
    try {
        const auto addresses = resolve(host, end);
        points.ok(step, host + ": " + join(addresses));
        step = direct ? "tcp" : "proxy_tcp";
        auto socket = connect_to(addresses, direct ? server.port : server.proxy_port, end);
        points.ok(step, "connected");
        return socket;
    } catch (const failure& error) {
        points.fault(step, error.cause, error.what(), advice_for(error.cause));
        return socket_handle();
    }
}

struct verdict {
    const char* cause;
    const char* advice;
};

verdict verdict_on(int verify_error) {
    switch (verify_error) {
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return {"expired", "renew it, unless this device's clock is wrong"};
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return {"not-yet-valid", "wait, unless this device's clock is wrong"};
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_CERT_SIGNATURE_FAILURE:
            return {"untrusted",
                    "no authority of this device's bundle signed it: another server, a proxy that "
                    "looks inside, or an intermediate certificate that the server does not send"};
        default:
            return {"unsound", "see OpenSSL's reason"};
    }
}

void tell_server_certificate(group& points, const handshake& seen, const std::string& host) {
    if (seen.certificate.empty()) {
        return;
    }
    const std::string own = seen.certificate + ", for " + seen.names;
    if (seen.verify_error != X509_V_OK) {
        const verdict verdict = verdict_on(seen.verify_error);
        points.fault("certificate", verdict.cause,
                     std::string(X509_verify_cert_error_string(seen.verify_error)) + ", about " +
                         seen.verified + " at depth " + std::to_string(seen.verify_depth) + "; " +
                         own,
                     verdict.advice);
    } else if (seen.finished && !seen.host_fits) {
        points.fault("certificate", "host", own + ", and not for " + host,
                     "write a name that the certificate has, or give the server another");
    } else {
        points.ok("certificate", own);
    }
    points.ok("chain", "sent: " + join(seen.chain, " < "));
}

// Why there is no TLS, where neither certificate is the reason.
verdict verdict_on(const handshake& seen) {
    if (seen.end == "silent") {
        return {"silent",
                "the server took the connection and says nothing to TLS: see what listens there"};
    }
    switch (seen.reason) {
        case SSL_R_TLSV1_ALERT_PROTOCOL_VERSION:
        case SSL_R_UNSUPPORTED_PROTOCOL:
        case SSL_R_WRONG_SSL_VERSION:
            return {"protocol", "the agent speaks TLS 1.2 alone: have the server offer it"};
        case SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE:
        case SSL_R_WRONG_CIPHER_RETURNED:
        case SSL_R_UNKNOWN_CIPHER_RETURNED:
            return {
                "ciphers",
                "no cipher in common, or only protocols older than TLS 1.2: have the server offer "
                "TLS 1.2 with one of the agent's ciphers"};
        case SSL_R_WRONG_VERSION_NUMBER:
            return {"no-tls", "what listens there speaks no TLS: compare the port"};
        default:
            return {"closed", "see the server's log, or that of a device on the way"};
    }
}

void tell_tls(group& points, const handshake& seen) {
    if (seen.finished) {
        points.ok("tls", seen.protocol + ", " + seen.cipher);
    } else if (seen.verify_error == X509_V_OK && !seen.certificate_wanted) {
        const verdict verdict = verdict_on(seen);
        points.fault("tls", verdict.cause, seen.end == "silent" ? "no answer" : seen.message,
                     verdict.advice);
    } else {
        points.skipped("tls", "the handshake ended at a certificate");
    }
}

void tell_client_certificate(group& points, const handshake& seen) {
    if (!seen.certificate_wanted) {
        if (seen.finished) {
            points.warning("client_certificate", "not-wanted", "the server does not ask for it",
                           "a collection server does: see what listens there");
        }
    } else if (seen.end.empty()) {
        points.ok("client_certificate", "asked for, and no refusal came");
    } else {
        points.fault(
            "client_certificate", seen.end == "silent" ? "silent" : "refused",
            "asked for, and then: " + (seen.end == "silent" ? "no further answer" : seen.message),
            "see whether the server trusts who issued it, and its dates");
    }
}

bool examine_tls(group& points, const address& server, int socket, const deadline& end) {
    try {
        if (!server.proxy_host.empty()) {
            const bool brackets = server.host.find(':') != std::string::npos;
            pass_proxy(socket,
                       (brackets ? "[" + server.host + "]" : server.host) + ":" + server.port, end);
        }
        const handshake seen = shake_hands(socket, server.host, end);
        tell_tls(points, seen);
        tell_server_certificate(points, seen, server.host);
        tell_client_certificate(points, seen);
        return seen.finished && seen.host_fits && seen.end.empty();
    } catch (const failure& error) {
        points.fault("proxy_connect", error.cause, error.what(), advice_for(error.cause));
    } catch (const std::exception& error) {
        points.fault("tls", "unusable", error.what(), "see the credentials above");
    }
    return false;
}

// What may not or cannot be done beyond the connection; empty when nothing stands in the way.
std::string obstacle(const examination& whole, const address& server) {
    return !server.https               ? "no address for TLS"
           : !whole.gates_open         ? "a gate is closed: nothing of this device leaves it"
           : !whole.credentials_usable ? "no usable credentials"
           : !server.proxy_host.empty() && !server.proxy_http
               ? "not looked through this kind of proxy"
               : "";
}

void examine_network(examination& whole, group& points, const address& server) {
    const deadline end(whole.asked.timeout_seconds);
    const socket_handle socket = reach(points, server, end);
    if (socket.get() < 0) {
        return;
    }
    if (const std::string why = obstacle(whole, server); !why.empty()) {
        points.skipped("tls", why);
        return;
    }
    if (examine_tls(points, server, socket.get(), end) && whole.asked.ask) {
        examine_paths(points, whole.config->get_helper("sender"), whole.asked.timeout_seconds);
    }
}

}  // namespace

void examine_server(examination& whole) {
    group points(whole, "server");
    if (!whole.config) {
        points.skipped("url", "no configuration");
        return;
    }
    address server;
    try {
        server = examine_address(points, whole.config->get_helper("sender"));
    } catch (const std::exception& error) {
        points.skipped("url", error.what());
        return;
    }
    if (server.usable) {
        examine_proxy(points, server);
    }
    if (whole.asked.offline) {
        points.skipped("network", "left out, by --offline");
    } else if (server.usable) {
        examine_network(whole, points, server);
    }
}

}  // namespace report_tool::doctor
