/* The log library of the platform on which the tests run: one line on stderr per message, as logcat's
 * brief form shows it. */
#define _POSIX_C_SOURCE 200809L
#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

int __android_log_print(int priority, const char* tag, const char* format, ...);

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return fprintf(stderr, "%c/%-8s(%5d): %s\n",
                   priority >= 2 && priority <= 7 ? "VDIWEF"[priority - 2] : '?', tag,
                   (int)getpid(), text);
}
