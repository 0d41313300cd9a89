#pragma once

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <openssl/bio.h>
#include <openssl/ssl.h>

namespace test_support {

/// A socket on a free port of 127.0.0.1. With a backlog of 0 its room for connections is taken up,
/// so that none is made or refused. With a negative one connections are refused.
class listener {
public:
    explicit listener(int backlog);
    listener(const listener&) = delete;
    listener& operator=(const listener&) = delete;
    ~listener();

    int port() const;
    int socket() const { return _sockets.front(); }

private:
    std::vector<int> _sockets;
};

/// How a peer presents itself. Its certificate is one of pki_dir(); without one it has no TLS.
struct peer_identity {
    std::string certificate = "server.pem";
    int max_version = 0;  ///< as TLS1_1_VERSION; 0: the newest
    std::string ciphers = "ALL";
    int min_version = TLS1_VERSION;
};

/// One connection. It ends when the behaviour that handles it returns. Failures do not show here.
struct peer_connection {
    /// False once the client has closed.
    bool read();
    /// Reads head and body of a request, or as much as comes.
    void read_request();
    void write(const std::string& bytes) const;
    /// Makes the connection end with a reset.
    void reset_at_end() const;

    BIO* bio;
    std::string received;
};

using behaviour = std::function<void(peer_connection&)>;

/// A whole answer.
std::string answer(const std::string& body, const std::string& status = "200 OK");
/// Gives these bytes as the answer to a request.
behaviour answering(const std::string& bytes);

/// A server that handles one connection after the other by the behaviours of its script; the last
/// one also handles all further ones. It asks for a client certificate. Its client must end before
/// it does.
class raw_peer {
public:
    explicit raw_peer(std::vector<behaviour> script, const peer_identity& identity = {});
    ~raw_peer();

    int port() const { return _listener.port(); }

    /// Ends it and returns all that its behaviours have read.
    const std::string& stop();

private:
    void serve();

    std::vector<behaviour> _script;
    SSL_CTX* _context;
    listener _listener{16};
    std::size_t _connections = 0;
    std::string _received;
    std::thread _thread;
};

}  // namespace test_support
