#include "server.h"

#include <cstdlib>

#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "request_form.h"

namespace collector {
namespace {

/// As long as a device's uplink may stall.
constexpr int READ_TIMEOUT_S = 60;
/// On any machine: each may hold a connection of the database, which has not many.
constexpr std::size_t THREADS = 8;

/// The library binds TCP ports only, and with a short queue.
template <class Base>
class server_on_socket : public Base {
public:
    template <class... Arguments>
    explicit server_on_socket(int socket, Arguments&&... arguments)
        : Base(std::forward<Arguments>(arguments)...) {
        this->svr_sock_ = socket;
        this->set_payload_max_length(MAX_BODY_SIZE);
        this->set_read_timeout(READ_TIMEOUT_S);
        this->new_task_queue = [] { return new httplib::ThreadPool(THREADS); };
    }
};

}  // namespace

std::unique_ptr<httplib::Server> make_server(int socket, const std::optional<tls_files>& tls) {
    if (!tls) {
        return std::make_unique<server_on_socket<httplib::Server>>(socket);
    }
    std::string fault;
    auto server =
        std::make_unique<server_on_socket<httplib::SSLServer>>(socket, [&](SSL_CTX& context) {
            fault = configure_tls(context, *tls);
            return fault.empty();
        });
    if (!fault.empty()) {
        throw std::runtime_error(fault);
    }
    server->set_tcp_nodelay(true);
    return server;
}

void serve_beside(httplib::Server& server) {
    std::thread([&server] {
        server.listen_after_bind();
        std::cerr << "collector: no longer able to listen\n";
        std::_Exit(EXIT_FAILURE);
    }).detach();
}

}  // namespace collector
