#pragma once

#include <string>

namespace reporter::modules {

/// UTC now as "2026-11-24T21:05:59.123456", without the fraction when it is zero. Throws
/// std::runtime_error when the clock does not convert.
std::string get_datetime();

/// A device fact, read from the platform once per process; "N/A" when there is none of that name.
/// Any thread.
std::string get_value_if_exists(const char* key);

}  // namespace reporter::modules
