#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Writes one record to the system log.
 * @param log_id  buffer that takes the record
 * @param prio    3 debug, 4 info, 5 warning, 6 error
 * @param tag     name that the record is filed under
 * @param fmt     printf format of the text
 * @return the number of bytes written, negative on failure
 *
 * May be called from any thread; leaves errno as it was.
 */
/* NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming): not our choice */
int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif
