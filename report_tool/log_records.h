#pragma once

namespace report_tool {

/// From now on the library's records go to the platform's log, where they do not go at first.
/// Before threads start.
void let_records_through();

}  // namespace report_tool
