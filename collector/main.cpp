#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "browser_guard.h"
#include "counters.h"
#include "latest_requests.h"
#include "listen_address.h"
#include "options.h"
#include "page_desk.h"
#include "query_desk.h"
#include "report_store.h"
#include "request_desk.h"
#include "request_judge.h"
#include "server.h"

namespace {

/// Blocks them in every thread, so that one place can wait for them.
sigset_t block_stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/// The file appears whole, so that a reader never gets a part of the number.
void tell_address(const std::string& address, const std::string& port_file) {
    std::cout << "listening on " << address << std::endl;
    if (port_file.empty()) {
        return;
    }
    const std::string unfinished = port_file + ".new";
    std::ofstream(unfinished) << address.substr(address.rfind(':') + 1) << '\n';
    if (std::rename(unfinished.c_str(), port_file.c_str()) != 0) {
        throw std::runtime_error("cannot write the port to " + port_file);
    }
}

void serve(const collector::options& options) {
    const sigset_t stop_signals = block_stop_signals();
    const auto store = collector::open_store(options.store);
    collector::request_judge judge(*store, collector::read_hashes(options.known_hashes));
    collector::counters counted;
    collector::latest_requests latest;
    collector::request_desk desk(judge, counted, latest, options.plan);
    collector::query_desk queries(*store, counted);
    collector::page_desk page(options.page, latest,
                              collector::is_server(options.store) ? nullptr : &desk);

    const int socket = options.listen.open();
    const auto server = make_server(socket, options.tls);
    desk.attach(*server);
    std::unique_ptr<httplib::Server> status_server;
    if (options.status) {
        const int status_socket = options.status->open();
        status_server = collector::make_server(status_socket, {});
        collector::guard_against_other_sites(*status_server);
        queries.attach(*status_server);
        if (!options.page.empty()) {
            page.attach(*status_server);
        }
        std::cout << "status on " << collector::address_of(status_socket) << std::endl;
        collector::serve_beside(*status_server);
    }
    tell_address(collector::address_of(socket), options.port_file);
    collector::serve_beside(*server);

    int signal = 0;
    sigwait(&stop_signals, &signal);
    // An orderly end would wait for each silent connection and each planned delay. What the store
    // has not committed was not answered.
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
