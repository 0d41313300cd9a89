#include <sys/socket.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include <httplib.h>

#include "options.h"
#include "request_desk.h"

namespace {

constexpr const char* ADDRESS = "127.0.0.1";

/// Blocks them in every thread, so that one place can wait for them.
sigset_t block_stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/// The library's own choice, SO_REUSEPORT, would let two servers share a port unnoticed.
void reuse_address_only(socket_t socket) {
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

/// Binds a free port, already listening; returns its number.
int bind(httplib::Server& server) {
    server.set_socket_options(reuse_address_only);
    server.set_tcp_nodelay(true);
    server.set_payload_max_length(collector::MAX_BODY_SIZE);
    const int port = server.bind_to_any_port(ADDRESS);
    if (port < 0) {
        throw std::runtime_error(std::string("cannot bind a port of ") + ADDRESS);
    }
    return port;
}

/// The file appears whole, so that a reader never gets a part of the number.
void tell_port(int port, const std::string& path) {
    std::cout << "listening on " << ADDRESS << ':' << port << std::endl;
    if (path.empty()) {
        return;
    }
    const std::string unfinished = path + ".new";
    std::ofstream(unfinished) << port << '\n';
    if (std::rename(unfinished.c_str(), path.c_str()) != 0) {
        throw std::runtime_error("cannot write the port to " + path);
    }
}

void serve(const collector::options& options) {
    const sigset_t stop_signals = block_stop_signals();
    collector::report_store store(options.store);
    if (!options.known_hashes.empty()) {
        store.read_known_hashes(options.known_hashes);
    }
    collector::request_desk desk(options.plan, std::move(store));

    std::string fault;
    httplib::SSLServer server([&](SSL_CTX& context) {
        fault = collector::configure_tls(context, options.tls);
        return fault.empty();
    });
    if (!fault.empty()) {
        throw std::runtime_error(fault);
    }
    desk.attach(server);
    tell_port(bind(server), options.port_file);

    std::thread([&server] {
        server.listen_after_bind();
        std::cerr << "collector: no longer able to listen\n";
        std::_Exit(EXIT_FAILURE);
    }).detach();

    int signal = 0;
    sigwait(&stop_signals, &signal);
    // An orderly end would wait for each silent connection and each planned delay.
    desk.close();
    std::_Exit(EXIT_SUCCESS);
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        serve(collector::parse_options(argc, argv));
    } catch (const std::exception& e) {
        std::cerr << "collector: " << e.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
