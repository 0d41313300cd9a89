#pragma once

#include <string>

#include <system_info.h>

namespace reporter {

// The readers that the facts of sys_info.h are made of: one that every device of the platform has,
// one of the device maker's, and one that the platform numbers. A value that cannot be read is the
// empty string. Any thread.

std::string get_platform_info(const std::string& key);
std::string get_custom_info(const char* key);
std::string get_sys_info_string_value(system_info_key_e key);

}  // namespace reporter
