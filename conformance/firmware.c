/*
 * Runs the conformance table and shows how it went: the program for firmware, and for everything else.
 * It needs the library and one function, conformance_print, that shows a text. Exit code 0 where every
 * row matches, else 1.
 *
 *     ./make_table table.c
 *     cc -std=c99 -I../include firmware.c kit.c sha256.c signals.c table.c print_stdio.c ... -lm
 *
 * -DCONFORMANCE_STEP=8 runs every eighth row.
 */
#include "kit.h"

#ifndef CONFORMANCE_STEP
#define CONFORMANCE_STEP 1
#endif

/* The host's own log function: the library must find it, and the thousands of configuration messages
 * are kept from whatever shows messages otherwise. */
static long messages;

__attribute__((visibility("default"))) int __android_log_print(int priority, const char* tag,
                                                               const char* format, ...);

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    messages += priority == 4 && tag[0] == 'O' && format[0] != '\0';
    return 0;
}

int main(void) {
    const int passed = conformance_run(&conformance_table, CONFORMANCE_STEP, conformance_print);
    if (messages == 0) {
        conformance_print("the library did not find the host's log function\n");
    }
    return passed && messages > 0 ? 0 : 1;
}
