#pragma once

#include <string>

namespace report_tool {

/// The agent's own pass in a process of its own, whose records come back through a pipe. SIGINT and
/// SIGTERM to this process stop the pass in order, and what it does meanwhile still comes. One in a
/// process, from its only thread.
class agent_process {
public:
    /// Throws std::runtime_error when no process can be made.
    agent_process();
    agent_process(const agent_process&) = delete;
    agent_process& operator=(const agent_process&) = delete;
    ~agent_process();

    /// The next record; false when there is no more.
    bool next_line(std::string& line);
    /// Waits for the end. False when a signal killed it.
    static bool ended_by_itself();

private:
    int _records = -1;
    std::string _text;
};

}  // namespace report_tool
