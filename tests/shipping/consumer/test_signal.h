/** The signal that all programs hand to the library, and the digest of what comes back. */
#ifndef KORVANE_TESTS_SHIPPING_TEST_SIGNAL_H
#define KORVANE_TESTS_SHIPPING_TEST_SIGNAL_H

#include <stdint.h>

enum { kRate = 16000, kFrame = 160, kFrames = 400 };

/** Frame `index` of noise from a fixed seed: quiet but for one loud half second, whose level rises
 * and falls within each frame. */
static inline void next_frame(int16_t* samples, int index, uint32_t* seed) {
    const int loud = index >= 120 && index < 170;
    for (int i = 0; i < kFrame; ++i) {
        *seed = *seed * 1664525U + 1013904223U;
        const int32_t noise = (int32_t)(*seed >> 16) - 32768;
        samples[i] = (int16_t)(loud ? noise * (i % 80) / 160 : noise / 1024);
    }
}

/** FNV-1a over the samples of a frame, low byte first. */
static inline uint32_t add_to_digest(uint32_t digest, const int16_t* samples) {
    for (int i = 0; i < kFrame; ++i) {
        const uint32_t bits = (uint16_t)samples[i];
        digest = (digest ^ (bits & 255U)) * 16777619U;
        digest = (digest ^ (bits >> 8)) * 16777619U;
    }
    return digest;
}

#endif
