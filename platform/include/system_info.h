#pragma once

#include <stdbool.h>

/** Platform key of the manufacturer's name, for system_info_get_platform_string(). */
#define SYSTEM_INFO_PLATFORM_MANUFACTURER "http://tizen.org/system/manufacturer"

#ifdef __cplusplus
extern "C" {
#endif

/** What names a fact that the platform numbers. It knows more of them than are named here. */
typedef enum {
    SYSTEM_INFO_PLATFORM_VERSION = 1,
    SYSTEM_INFO_PLATFORM_NAME = 2,
    SYSTEM_INFO_SOFTWARE_VERSION = 128,
    SYSTEM_INFO_SOFTWARE_VERSION_MODEL = 199,
    SYSTEM_INFO_BROADCAST_STANDARD = 333, /**< 0 ATSC, 1 DVB, 2 ISDB */
    SYSTEM_INFO_DEVICE_ID = 801,
    SYSTEM_INFO_BASIC_TRAFFIC_BLOCKED = 40066
} system_info_key_e;

/*
 * Every reader returns 0 and sets *value on success. On failure, which includes a fact of another
 * type, it returns another value and leaves *value alone. A string is malloc'ed; the caller frees
 * it. Any thread.
 */

/** Facts by number. */
int system_info_get_value_int(system_info_key_e key, int* value);
int system_info_get_value_bool(system_info_key_e key, bool* value);
int system_info_get_value_string(system_info_key_e key, char** value);

/** Facts that the device maker adds, by name. */
int system_info_get_custom_int(const char* key, int* value);
int system_info_get_custom_bool(const char* key, bool* value);
int system_info_get_custom_string(const char* key, char** value);

/** Facts that every device of the platform has, by name. */
int system_info_get_platform_string(const char* key, char** value);

#ifdef __cplusplus
}
#endif
