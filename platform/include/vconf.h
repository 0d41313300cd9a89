#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reads a setting that is a string. Any thread.
 * @return a malloc'ed string that the caller frees; NULL when the setting is absent or no string
 */
char* vconf_get_str(const char* key);

/**
 * Reads a setting that is an integer. Any thread.
 * @param value  set on success only
 * @return 0 on success, a negative error code on failure
 */
int vconf_get_int(const char* key, int* value);

#ifdef __cplusplus
}
#endif
