#pragma once

#include <string>

namespace report_tool {

/// "http:404, no such path there", or "curl:7, …" for a status below 0.
std::string explain_status(int status);

/// "200, taken" for a code of one report.
std::string explain_code(int code);

}  // namespace report_tool
