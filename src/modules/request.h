#pragma once

#include <string>

namespace reporter::modules {

/// UTC now as "2026-11-24T21:05:59.123456", without the fraction when it is zero. Throws
/// std::runtime_error when the clock does not convert.
std::string get_datetime();

/// The device fact of that name (sys_info.h), "N/A" when there is none. All facts are read from the
/// platform at the first call, for the whole life of the process. Any thread.
std::string get_value_if_exists(const char* key);

}  // namespace reporter::modules
