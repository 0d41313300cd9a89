#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace test_support {

/// Waits until `holds` gives true, which it asks every few milliseconds. False once the deadline
/// has passed.
bool wait_until(const std::function<bool()>& holds,
                std::chrono::seconds deadline = std::chrono::seconds(120));

/// Makes this process that of the command. Returns when it cannot.
void execute(std::vector<std::string>& command);

/// A program that runs beside the test; what it writes is kept. If it still runs at the end it is
/// killed, also when the test itself is killed. One thread.
class child_process {
public:
    explicit child_process(std::vector<std::string> command);
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;
    ~child_process();

    void signal(int number) const;
    bool running();
    /// Exit status, 128 + N after signal N. A program that does not end is killed.
    int wait();
    /// Waits until the program has written `text`. Throws std::runtime_error with all that it has
    /// written instead.
    void wait_for(const std::string& text);
    /// Standard output and standard error so far, in the order of the writes.
    std::string output() const;

private:
    int _output;
    pid_t _pid;
    int _status = -1;
};

}  // namespace test_support
