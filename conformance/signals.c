#include "signals.h"

uint32_t draw(uint32_t* state) {
    *state ^= *state << 13;
    *state ^= *state >> 17;
    *state ^= *state << 5;
    return *state;
}

/* floor(v / 2^s) without relying on how the compiler shifts negative numbers. */
static int32_t floor_shift(int32_t v, int32_t s) {
    return v >= 0 ? v >> s : -((-(v + 1)) >> s) - 1;
}

static int32_t noise(uint32_t* state, int32_t s) {
    const int32_t upper = (int32_t)(draw(state) >> 16);
    return floor_shift(upper < 32768 ? upper : upper - 65536, s);
}

static int32_t triangle(int32_t a, int32_t p, int32_t i) {
    const int32_t t = i % p;
    const int32_t v = t < p / 2 ? t : p - t;
    return (int32_t)((int64_t)4 * a * v / p) - a;
}

static int32_t sample(Signal* g) {
    const int32_t i = g->at++;
    switch (g->kind) {
        case kSignalNoise:
            return noise(&g->seed, g->s);
        case kSignalSquare:
            return i / g->p % 2 != 0 ? -g->a : g->a;
        case kSignalTone:
            return triangle(g->a, g->p, i);
        case kSignalBursts:
            return noise(&g->seed, g->s) + (i / g->q % 2 != 0 ? triangle(g->a, g->p, i) : 0);
        case kSignalGaps: {
            const int32_t v = noise(&g->seed, g->s);
            return i / g->q % 2 != 0 ? 0 : v;
        }
        case kSignalImpulses:
            return i % g->p == 0 ? -32768 : 0;
        case kSignalConstant:
            return g->a;
        case kSignalAlternate:
            return i % 2 != 0 ? -g->a : g->a;
        case kSignalNone:
            break;
    }
    return 0;
}

void make_signal(Signal* g, int16_t* x, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        const int32_t v = sample(g);
        x[i] = (int16_t)(v < -32768 ? -32768 : v > 32767 ? 32767 : v);
    }
}
