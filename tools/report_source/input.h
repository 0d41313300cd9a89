#pragma once

#include <json/value.h>

#include "report.h"

/// The report that a line of input describes, an object. Throws std::runtime_error with what is
/// wrong with it.
reporter::report read_report(const Json::Value& line);

/// Caller and file hash of a report to count again. Throws likewise.
reporter::ext_aggregation_data read_names(const Json::Value& names);
