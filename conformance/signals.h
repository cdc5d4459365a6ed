/* The made signals of the conformance table: integers only, the same on every machine. */
#ifndef KORVANE_CONFORMANCE_SIGNALS_H
#define KORVANE_CONFORMANCE_SIGNALS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum SignalKind {
    kSignalNone,
    kSignalNoise,
    kSignalSquare,
    kSignalTone,
    kSignalBursts,
    kSignalGaps,
    kSignalImpulses,
    kSignalConstant,
    kSignalAlternate
} SignalKind;

/* A signal, and how far it has been made. */
typedef struct Signal {
    SignalKind kind;
    int32_t a;     /* amplitude */
    int32_t p;     /* period of the tone, square wave or impulses, in samples */
    int32_t q;     /* length of a burst or a gap */
    int32_t s;     /* noise is shifted right by this */
    uint32_t seed; /* state of the generator */
    int32_t at;    /* place of the next sample; begin with 0 */
} Signal;

/* One draw of the 32-bit xorshift generator (G. Marsaglia, "Xorshift RNGs", 2003). */
uint32_t draw(uint32_t* state);

/* Writes the next n samples of the signal to x. */
void make_signal(Signal* signal, int16_t* x, int32_t n);

#ifdef __cplusplus
}
#endif

#endif
