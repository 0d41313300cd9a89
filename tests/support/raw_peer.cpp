#include "support/raw_peer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>

#include "support/agent_run.h"

namespace test_support {
namespace {

sockaddr_in address_of(int socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return address;
}

SSL_CTX* make_context(const peer_identity& identity) {
    if (identity.certificate.empty()) {
        return nullptr;
    }
    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    const std::string pki = pki_dir() + "/";
    // Security level 0, so that it also offers what the client has to refuse.
    const std::string ciphers = identity.ciphers + ":@SECLEVEL=0";
    if (SSL_CTX_load_verify_locations(context, (pki + "ca.pem").c_str(), nullptr) != 1 ||
        SSL_CTX_use_certificate_chain_file(context, (pki + identity.certificate).c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(context, (pki + "server.key").c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_set_cipher_list(context, ciphers.c_str()) != 1 ||
        SSL_CTX_set_min_proto_version(context, identity.min_version) != 1 ||
        SSL_CTX_set_max_proto_version(context, identity.max_version) != 1) {
        throw std::runtime_error("cannot be " + identity.certificate);
    }
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    return context;
}

}  // namespace

listener::listener(int backlog) : _sockets{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(socket(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        (backlog >= 0 && listen(socket(), backlog) != 0)) {
        throw std::runtime_error("cannot listen");
    }
    address = address_of(socket());
    for (int taken = backlog == 0 ? 0 : 8; taken < 8; ++taken) {
        _sockets.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        connect(_sockets.back(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
}

listener::~listener() {
    std::for_each(_sockets.begin(), _sockets.end(), close);
}

int listener::port() const {
    return ntohs(address_of(socket()).sin_port);
}

bool peer_connection::read() {
    char bytes[16384];
    const int size = BIO_read(bio, bytes, sizeof bytes);
    received.append(bytes, static_cast<std::size_t>(std::max(size, 0)));
    return size > 0;
}

void peer_connection::read_request() {
    while (read()) {
        const std::size_t head = received.find("\r\n\r\n");
        const std::size_t length = received.find("Content-Length: ");
        if (length < head && head != std::string::npos &&
            received.size() >= head + 4 + std::stoul(received.substr(length + 16))) {
            return;
        }
    }
}

void peer_connection::write(const std::string& bytes) const {
    BIO_write(bio, bytes.data(), static_cast<int>(bytes.size()));
}

void peer_connection::reset_at_end() const {
    SSL* tls = nullptr;
    BIO_get_ssl(bio, &tls);
    SSL_set_quiet_shutdown(tls, 1);
    const linger none{1, 0};
    setsockopt(SSL_get_fd(tls), SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

std::string answer(const std::string& body, const std::string& status) {
    const std::string length = std::to_string(body.size());
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + length + "\r\n\r\n" + body;
}

behaviour answering(const std::string& bytes) {
    return [bytes](peer_connection& client) {
        client.read_request();
        client.write(bytes);
    };
}

raw_peer::raw_peer(std::vector<behaviour> script, const peer_identity& identity)
    : _script(std::move(script)), _context(make_context(identity)) {
    std::signal(SIGPIPE, SIG_IGN);
    _thread = std::thread([this] { serve(); });
}

raw_peer::~raw_peer() {
    stop();
    SSL_CTX_free(_context);
}

const std::string& raw_peer::stop() {
    shutdown(_listener.socket(), SHUT_RDWR);
    if (_thread.joinable()) {
        _thread.join();
    }
    return _received;
}

void raw_peer::serve() {
    int socket = -1;
    while ((socket = accept4(_listener.socket(), nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
        peer_connection client{BIO_new_socket(socket, BIO_CLOSE), ""};
        if (_context != nullptr) {
            client.bio = BIO_push(BIO_new_ssl(_context, 0), client.bio);
        }
        if (_context == nullptr || BIO_do_handshake(client.bio) == 1) {
            _script[std::min(_connections, _script.size() - 1)](client);
        }
        BIO_free_all(client.bio);
        ++_connections;
        _received += client.received;
    }
}

}  // namespace test_support
