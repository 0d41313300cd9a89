#include "support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace test_support {

bool wait_until(const std::function<bool()>& holds, std::chrono::seconds deadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    bool held = holds();
    while (!held && std::chrono::steady_clock::now() < end) {
        poll(nullptr, 0, 2);  // A sleep would return at once while pauses are recorded.
        held = holds();
    }
    return held;
}

void execute(std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (std::string& argument : command) {
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
}

child_process::child_process(std::vector<std::string> command)
    : _output(memfd_create("output", MFD_CLOEXEC)) {
    // Threads that share an offset in such a file would write over each other's lines.
    fcntl(_output, F_SETFL, O_APPEND);
    _pid = fork();
    if (_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        std::signal(SIGPIPE, SIG_DFL);
        dup2(_output, STDOUT_FILENO);
        dup2(_output, STDERR_FILENO);
        execute(command);
        _exit(127);
    }
}

child_process::~child_process() {
    signal(SIGKILL);
    wait();
    close(_output);
}

void child_process::signal(int number) const {
    if (_status < 0) {
        kill(_pid, number);
    }
}

bool child_process::running() {
    int status = 0;
    if (_status < 0 && waitpid(_pid, &status, WNOHANG) == _pid) {
        _status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return _status < 0;
}

int child_process::wait() {
    while (!wait_until([this] { return !running(); })) {
        signal(SIGKILL);
    }
    return _status;
}

void child_process::wait_for(const std::string& text) {
    const auto written = [&] { return output().find(text) != std::string::npos; };
    wait_until([&] { return written() || !running(); });
    if (!written()) {
        throw std::runtime_error("no \"" + text + "\" in: " + output());
    }
}

std::string child_process::output() const {
    struct stat file {};
    fstat(_output, &file);
    std::string text(static_cast<std::size_t>(file.st_size), '\0');
    text.resize(static_cast<std::size_t>(pread(_output, text.data(), text.size(), 0)));
    return text;
}

}  // namespace test_support
