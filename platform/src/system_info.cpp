#include "system_info.h"

#include <string>

#include "state.h"

namespace {

constexpr int system_info_error = -1;

// Reads a fact by `convert`, one of platform::to_...; sets `value` on success only.
template <typename Value, typename Convert>
int read_fact(const char* section, const char* key, Value* value, Convert convert) {
    if (key == nullptr || value == nullptr) {
        return system_info_error;
    }
    return platform::guarded(system_info_error, [=] {
        *value = convert(platform::read_member("system_info.json", section, key));
        return 0;
    });
}

template <typename Value, typename Convert>
int read_numbered_fact(system_info_key_e key, Value* value, Convert convert) {
    return platform::guarded(system_info_error, [=] {
        return read_fact("value", std::to_string(static_cast<int>(key)).c_str(), value, convert);
    });
}

}  // namespace

int system_info_get_value_int(system_info_key_e key, int* value) {
    return read_numbered_fact(key, value, platform::to_int);
}

int system_info_get_value_bool(system_info_key_e key, bool* value) {
    return read_numbered_fact(key, value, platform::to_bool);
}

int system_info_get_value_string(system_info_key_e key, char** value) {
    return read_numbered_fact(key, value, platform::to_c_string);
}

int system_info_get_custom_int(const char* key, int* value) {
    return read_fact("custom", key, value, platform::to_int);
}

int system_info_get_custom_bool(const char* key, bool* value) {
    return read_fact("custom", key, value, platform::to_bool);
}

int system_info_get_custom_string(const char* key, char** value) {
    return read_fact("custom", key, value, platform::to_c_string);
}

int system_info_get_platform_string(const char* key, char** value) {
    return read_fact("platform", key, value, platform::to_c_string);
}
