#include "pass.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>

#include "configuration.h"
#include "data_dir.h"
#include "lua_sandbox.h"
#include "module_host.h"
#include "modules/report_sender_module.h"
#include "pause.h"
#include "stop_watcher.h"
#include "storage/open_reports_storage.h"
#include "storage/reports_storage.h"

namespace reporter {
namespace {

using modules::report_sender_module_name;
using modules::report_sender_module_policy;
using sender_host = modules::module_host<report_sender_module_policy>;

// How long a stop may hang before it is cut short. A pause may be under way then.
constexpr std::chrono::milliseconds stop_grace = std::chrono::milliseconds(500) + pause_length;

std::atomic<sender_host*> g_module{nullptr};

void stop_module() {
    sender_host* host = g_module.exchange(nullptr);
    if (host != nullptr) {
        host->stop();
    }
}

void signal_handler(int) {
    stop_watcher::request_stop();
}

std::shared_ptr<reports_storage> make_storage(const config_helper& config) {
    lua_sandbox sandbox(config, config.get_script(storage_script).content);
    sandbox.init();  // A script that does not load ends the process here, before a thread starts.
    return reports_storage::make(std::move(sandbox), true);
}

}  // namespace

// The watcher has to go before the host, or it could stop a host that is gone.
void run_sending_pass() {
    const auto config =
        load_configuration(config_dir, REPORTER_DATA_DIR + "/lua", {storage_script});
    auto storage = make_storage(config);
    const auto host = std::make_unique<sender_host>(
        report_sender_module_policy(config.get_helper("sender"), storage),
        report_sender_module_name);
    const stop_watcher watcher(stop_module, stop_grace);

    g_module = host.get();
    host->run();
    std::signal(SIGTERM, signal_handler);
    host->wait();
    g_module = nullptr;
}

}  // namespace reporter
