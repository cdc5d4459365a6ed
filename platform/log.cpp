#include "platform/log.h"

#include <cstdarg>
#include <cstdio>

#if !defined(__ANDROID__) && !defined(__wasm__)
#include <unistd.h>
#endif

#ifdef __ANDROID__

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

namespace korvane {

LogPrint log_sink() { return __android_log_print; }

}  // namespace korvane

#else

// A weak reference, not a definition: the library exports nothing beyond its interface, and the
// address is null unless the host (or a library it loads) defines the function.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the platform's name
extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((weak, visibility("default"), format(printf, 3, 4)));

namespace korvane {

namespace {

/** The letter by which logcat shows a priority: V, D, I, W, E, F for 2..7. */
char priority_letter(int priority) {
    return priority >= 2 && priority <= 7 ? "VDIWEF"[priority - 2] : '?';
}

#ifdef __wasm__
int getpid() { return 0; }  // there are no processes
#endif

/** Takes the place of the platform's log: one write to stderr per message, so that lines of several
 * processes do not mix. A message that does not fit is cut. Returns the characters written. */
int stderr_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

int stderr_log_print(int priority, const char* tag, const char* format, ...) {
    char message[256];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized,cert-err33-c): va_start began it; a cut is allowed
    vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    return fprintf(stderr, "%c/%-8s(%5d): %s\n", priority_letter(priority), tag,
                   static_cast<int>(getpid()), message);
}

}  // namespace

LogPrint log_sink() {
    return __android_log_print != nullptr ? __android_log_print : stderr_log_print;
}

}  // namespace korvane

#endif
