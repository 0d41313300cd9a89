#pragma once

#include <json/value.h>

#include "report.h"

/// The report that a line of input describes. Throws std::runtime_error about what is wrong with
/// it.
reporter::report read_report(const Json::Value& line);

/// The same for the names of a report to count again.
reporter::ext_aggregation_data read_names(const Json::Value& names);
