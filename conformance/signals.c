#include "signals.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

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

int parse_signal(const char* text, Signal* signal) {
    return sscanf(text, "%11[a-z],%" SCNd32 ",%" SCNd32 ",%" SCNd32 ",%" SCNd32 ",%" SCNu32,
                  signal->kind, &signal->a, &signal->p, &signal->q, &signal->s, &signal->seed) == 6;
}

void make_signal(const Signal* g, int16_t* x, int32_t n) {
    uint32_t state = g->seed;
    for (int32_t i = 0; i < n; ++i) {
        int32_t v = 0;
        if (strcmp(g->kind, "noise") == 0) {
            v = noise(&state, g->s);
        } else if (strcmp(g->kind, "square") == 0) {
            v = i / g->p % 2 != 0 ? -g->a : g->a;
        } else if (strcmp(g->kind, "tone") == 0) {
            v = triangle(g->a, g->p, i);
        } else if (strcmp(g->kind, "bursts") == 0) {
            v = noise(&state, g->s) + (i / g->q % 2 != 0 ? triangle(g->a, g->p, i) : 0);
        } else if (strcmp(g->kind, "gaps") == 0) {
            v = noise(&state, g->s);
            v = i / g->q % 2 != 0 ? 0 : v;
        } else if (strcmp(g->kind, "impulses") == 0) {
            v = i % g->p == 0 ? -32768 : 0;
        } else if (strcmp(g->kind, "constant") == 0) {
            v = g->a;
        } else if (strcmp(g->kind, "alternate") == 0) {
            v = i % 2 != 0 ? -g->a : g->a;
        }
        x[i] = (int16_t)(v < -32768 ? -32768 : v > 32767 ? 32767 : v);
    }
}
