#include "agent_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include <exception>
#include <stdexcept>

#include "log_records.h"
#include "logging.h"
#include "output.h"
#include "pass.h"

namespace report_tool {
namespace {

volatile std::sig_atomic_t agent = 0;

void stop_agent(int) {
    if (agent > 0) {
        kill(agent, SIGTERM);
    }
}

[[noreturn]] void be_agent(int records) {
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    copy_records_to(records);
    REPORTER_INFO("processor pid:" << getpid());
    try {
        reporter::run_sending_pass();
    } catch (const std::exception& error) {
        REPORTER_ERROR(error.what());
    }
    _exit(0);
}

}  // namespace

agent_process::agent_process() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe can be made: " + error_text(errno));
    }
    std::signal(SIGTERM, SIG_DFL);
    agent = fork();
    if (agent == 0) {
        close(ends[0]);
        be_agent(ends[1]);
    }
    close(ends[1]);
    _records = ends[0];
    if (agent < 0) {
        close(_records);
        throw std::runtime_error("no process can be made: " + error_text(errno));
    }
    std::signal(SIGINT, stop_agent);
    std::signal(SIGTERM, stop_agent);
}

agent_process::~agent_process() {
    close(_records);
}

bool agent_process::next_line(std::string& line) {
    std::size_t end = 0;
    while ((end = _text.find('\n')) == std::string::npos) {
        char bytes[4096];
        const ssize_t size = read(_records, bytes, sizeof bytes);
        if (size == 0 || (size < 0 && errno != EINTR)) {
            return false;
        }
        _text.append(bytes, size > 0 ? static_cast<std::size_t>(size) : 0);
    }
    line = _text.substr(0, end);
    _text.erase(0, end + 1);
    return true;
}

bool agent_process::ended_by_itself() {
    int status = 0;
    while (waitpid(agent, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status);
}

}  // namespace report_tool
