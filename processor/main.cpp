#include <malloc.h>
#include <unistd.h>

#include <csignal>
#include <exception>

#include "logging.h"
#include "pass.h"

int main() {
    // One heap for all threads, as the sender's own would grow beside what start-up has freed. A
    // large block, such as a request's text, is mapped by itself and leaves no gap. The bound for
    // that is fixed, as the C library would raise it once such a block is freed.
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
        reporter::run_sending_pass();
    } catch (const std::exception& error) {
        REPORTER_ERROR(error.what());
    }
    return 0;
}
