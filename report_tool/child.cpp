#include "child.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <exception>
#include <iostream>
#include <stdexcept>

#include "output.h"

namespace report_tool {
namespace {

constexpr char returned_mark = '+';
constexpr char threw_mark = '-';

std::string read_all(int descriptor) {
    std::string text;
    char bytes[4096];
    ssize_t size = 0;
    while ((size = read(descriptor, bytes, sizeof bytes)) > 0 || (size < 0 && errno == EINTR)) {
        text.append(bytes, size > 0 ? static_cast<std::size_t>(size) : 0);
    }
    return text;
}

[[noreturn]] void be_child(int descriptor, unsigned int seconds,
                           const std::function<std::string()>& work) {
    std::signal(SIGALRM, SIG_DFL);
    alarm(seconds);
    std::string answer;
    try {
        answer = returned_mark + work();
    } catch (const std::exception& error) {
        answer = threw_mark + std::string(error.what());
    }
    write_all(descriptor, answer);
    // The only thread there is. NOLINTNEXTLINE(concurrency-mt-unsafe)
    std::exit(0);
}

child_answer answer_of(const std::string& text, int status) {
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
        return {child_answer::end::too_late, ""};
    }
    if (!WIFEXITED(status) || text.empty()) {
        return {child_answer::end::died, ""};
    }
    return {text[0] == returned_mark ? child_answer::end::returned : child_answer::end::threw,
            text.substr(1)};
}

}  // namespace

child_answer in_child(unsigned int seconds, const std::function<std::string()>& work) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe can be made");
    }
    std::cout.flush();  // Or the child would print it once more when it ends.
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        be_child(ends[1], seconds, work);
    }
    close(ends[1]);
    const std::string text = child > 0 ? read_all(ends[0]) : "";
    close(ends[0]);
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (child < 0) {
        throw std::runtime_error("no process can be made");
    }
    return answer_of(text, status);
}

}  // namespace report_tool
