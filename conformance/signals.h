/* The made signals of the conformance table: integers only, the same on every machine. */
#ifndef KORVANE_TESTS_SIGNALS_H
#define KORVANE_TESTS_SIGNALS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A signal as the table names it: "kind,a,p,q,s,seed". */
typedef struct Signal {
    char kind[12];
    int32_t a;
    int32_t p;
    int32_t q;
    int32_t s;
    uint32_t seed;
} Signal;

/* One draw of the 32-bit xorshift generator (G. Marsaglia, "Xorshift RNGs", 2003). */
uint32_t draw(uint32_t* state);

/* Reads a signal from its text; returns 0 where the text is not one. */
int parse_signal(const char* text, Signal* signal);

/* Writes samples 0..n-1 of the signal to x. */
void make_signal(const Signal* signal, int16_t* x, int32_t n);

#ifdef __cplusplus
}
#endif

#endif
