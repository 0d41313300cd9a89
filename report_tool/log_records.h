#pragma once

namespace report_tool {

/// From now on the library's records go to the platform's log, where they do not go at first.
/// Before threads start.
void let_records_through();

/// Also writes each record there, as a line that read_log_line takes. Before threads start.
void copy_records_to(int descriptor);

}  // namespace report_tool
