/**
 * The log layer. On Android messages go to the platform's log. Elsewhere they go to the host's
 * __android_log_print if it defines one, and else to stderr, one line each in logcat's brief form.
 */
#ifndef KORVANE_PLATFORM_LOG_H
#define KORVANE_PLATFORM_LOG_H

namespace korvane {

inline constexpr int kLogInfo = 4;  ///< Android's priority "info"

/** Writes one informational message under the library's tag; printf's format and arguments. */
#define KORVANE_LOG_INFO(...) ::korvane::log_sink()(::korvane::kLogInfo, "OLM_VOR_a64", __VA_ARGS__)

/** Signature of __android_log_print. */
using LogPrint = int (*)(int priority, const char* tag, const char* format, ...);

/** Where messages go now. */
LogPrint log_sink();

}  // namespace korvane

#endif
