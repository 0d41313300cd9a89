#pragma once

#include "doctor/examination.h"

namespace report_tool::doctor {

/// Posts one pre-check without hashes and one upload without reports, as the agent does, to see
/// that both paths answer.
void examine_paths(group& points, const reporter::config_helper& sender,
                   unsigned int timeout_seconds);

}  // namespace report_tool::doctor
