/**
 * The log layer. On Android messages go to the platform's log. Elsewhere they go to the host's
 * __android_log_print if it defines one, and else to stderr, one line each in logcat's brief form:
 * "I/TAG(  PID): message".
 */
#ifndef KORVANE_PLATFORM_LOG_H
#define KORVANE_PLATFORM_LOG_H

namespace korvane {

inline constexpr int kLogInfo = 4;  ///< Android's priority "info"

/** Signature of __android_log_print: priority, tag, printf's format and arguments. */
typedef int (*LogPrint)(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/** The function that takes messages now; never null. */
LogPrint log_sink();

}  // namespace korvane

#endif
