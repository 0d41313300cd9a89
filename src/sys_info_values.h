#pragma once

#include <string>

#include <system_info.h>

namespace reporter {

/// Platform setting that is 1 when the user has accepted the data-collection disclaimer.
inline constexpr const char* agreement_setting =
    "db/menu/homedeck/homedatacontrol/defaultdisclaimeragree";

// The readers of text that the facts of sys_info.h are made of. A value that cannot be read, or is
// no text, is the empty string. Any thread.

/// A fact that every device of the platform has, by its full name.
std::string get_platform_info(const std::string& key);
/// A fact that the device maker adds, by its full name.
std::string get_custom_info(const char* key);
/// A fact that the platform numbers.
std::string get_sys_info_string_value(system_info_key_e key);

}  // namespace reporter
