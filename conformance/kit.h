/*
 * The conformance kit: 796 ways of calling the library on made signals, each with the SHA-256 of what
 * must come out. The digests come from two models of the system that were written separately from
 * this library and agree with each other.
 *
 * C99 on the public headers alone. The kit calls no other function, allocates nothing, reads no file
 * and keeps 110 kB of static memory; values enter the digests in little-endian order on every machine.
 */
#ifndef KORVANE_CONFORMANCE_KIT_H
#define KORVANE_CONFORMANCE_KIT_H

#include <stdint.h>

#include "signals.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum ConformanceCall {
    kCallForward, /* the transforms */
    kCallInverse,
    kCallCore,     /* whole blocks through the suppressor */
    kCallStream,   /* any number of samples through it */
    kCallDecision, /* the level decision alone */
    kCallDetector  /* frame by frame, as most hosts do */
} ConformanceCall;

typedef struct ConformanceRow {
    int32_t number;
    ConformanceCall call;
    int32_t rate;
    int32_t level;
    int32_t mode;
    int32_t chunk;   /* samples per channel in a call */
    int32_t samples; /* per channel, in all */
    Signal signal[2];
    char digest[65]; /* hexadecimal */
} ConformanceRow;

typedef struct ConformanceTable {
    const ConformanceRow* rows;
    int32_t count;
    const char* digest; /* of the rows' digests, one after the other */
} ConformanceTable;

/* Made from table.tsv by make_table. */
extern const ConformanceTable conformance_table;

/*
 * Runs every step-th row of a table from its first one on; 1 is the whole table. Prints the first row that
 * differs as soon as it does, with what was expected and what came out, and in the end one line with the
 * number of rows, of those that differ, and the digest over all that were run. Returns 1 where no row
 * differs, nor the digest where all were run; else 0.
 */
int conformance_run(const ConformanceTable* table, int32_t step, void (*print)(const char* text));

/* Of firmware.c: shows a text. Supplied with print_stdio.c or by the target's firmware. */
void conformance_print(const char* text);

#ifdef __cplusplus
}
#endif

#endif
