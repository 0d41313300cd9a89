#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "configuration.h"
#include "data_dir.h"
#include "logging.h"
#include "lua_sandbox.h"
#include "module_host.h"
#include "modules/report_sender_module.h"
#include "stop_watcher.h"
#include "storage/open_reports_storage.h"
#include "storage/reports_storage.h"

namespace {

using reporter::modules::report_sender_module_name;
using reporter::modules::report_sender_module_policy;
using sender_host = reporter::modules::module_host<report_sender_module_policy>;

// How long a stop may hang before it is cut short.
constexpr std::chrono::milliseconds stop_grace{500};

std::atomic<sender_host*> g_module{nullptr};

void stop_module() {
    sender_host* host = g_module.exchange(nullptr);
    if (host != nullptr) {
        host->stop();
    }
}

void signal_handler(int) {
    reporter::stop_watcher::request_stop();
}

std::shared_ptr<reporter::reports_storage> make_storage(const reporter::config_helper& config) {
    reporter::lua_sandbox sandbox(config, config.get_script(reporter::storage_script).content);
    sandbox.init();  // A script that does not load ends the process here, before a thread starts.
    return reporter::reports_storage::make(std::move(sandbox), true);
}

// The watcher has to go before the host, or it could stop a host that is gone.
void run_sending_pass() {
    const auto config = reporter::load_configuration(
        reporter::config_dir, reporter::REPORTER_DATA_DIR + "/lua", {reporter::storage_script});
    auto storage = make_storage(config);
    const auto host = std::make_unique<sender_host>(
        report_sender_module_policy(config.get_helper("sender"), storage),
        report_sender_module_name);
    const reporter::stop_watcher watcher(stop_module, stop_grace);

    g_module = host.get();
    host->run();
    std::signal(SIGTERM, signal_handler);
    host->wait();
    g_module = nullptr;
}

}  // namespace

int main() {
    // One heap for all threads, as the sender's own would grow beside what start-up has freed. A
    // request's text stays out of it, however many went before, and leaves no gap.
    mallopt(M_ARENA_MAX, 1);                // NOLINT(concurrency-mt-unsafe): no thread yet
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);  // NOLINT(concurrency-mt-unsafe)
    // A peer that closes early only fails its transfer, and a log without a reader fails nothing.
    // libcurl does not see to this, as it is told to leave signals alone.
    std::signal(SIGPIPE, SIG_IGN);
    REPORTER_INFO("processor pid:" << getpid());
    REPORTER_INFO("ppid: " << getppid());
    REPORTER_INFO("/opt/data/dpm/dplugins/tev-reporter-plugin/tev_reporter_main");
    REPORTER_INFO("/opt/data/dpm/dplugins/tev-reporter-plugin/");
    try {
        run_sending_pass();
    } catch (const std::exception& error) {
        REPORTER_ERROR(error.what());
    }
    return 0;
}
