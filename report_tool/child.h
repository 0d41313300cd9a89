#pragma once

#include <functional>
#include <string>

namespace report_tool {

/// How work in a process of its own ended.
struct child_answer {
    enum class end { returned, threw, too_late, died } how;
    std::string text;  ///< what was returned, or of what was thrown
};

/// Does the work in a child, so that it can be ended after so many seconds, whatever it waits for,
/// and leaves nothing behind in this process. Throws std::runtime_error when no child can be made.
child_answer in_child(unsigned int seconds, const std::function<std::string()>& work);

}  // namespace report_tool
