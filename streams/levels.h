/**
 * Levels in whole numbers, so that every machine gives the same ones: 1/256 dB of full scale, which is
 * the mean square 32768^2.
 */
#ifndef KORVANE_STREAMS_LEVELS_H
#define KORVANE_STREAMS_LEVELS_H

#include <bit>
#include <cstdint>

namespace korvane {

/** 1/256 dB. */
using Level = int32_t;

inline constexpr Level kDecibel = 256;
inline constexpr Level kSilence = -140 * kDecibel;  ///< no sound at all, as in the detector

/** log2(x) in Q16, rounded down, for x above 0. */
constexpr int32_t log2_q16(uint64_t x) {
    const int exponent = 63 - std::countl_zero(x);
    // The mantissa, 1..2 in Q31. Squaring it doubles its logarithm, whose bits come out one by one.
    uint64_t m = exponent > 31 ? x >> (exponent - 31) : x << (31 - exponent);
    int32_t log = exponent;
    for (int i = 0; i < 16; ++i) {
        m = (m * m) >> 31;
        const auto bit = static_cast<uint32_t>(m >> 32);
        log = 2 * log + static_cast<int32_t>(bit);
        m >>= bit;
    }
    return log;
}

/** The level of a mean square sum / n, n 1 or more. */
constexpr Level level_of(uint64_t sum, uint32_t n) {
    if (sum == 0) {
        return kSilence;
    }
    constexpr int64_t kTenLog2 = 197283;  // 10*log10(2) in Q16
    constexpr int32_t kFullScale = 30 << 16;
    const int64_t log = log2_q16(sum) - log2_q16(n) - kFullScale;
    return static_cast<Level>((log * kTenLog2) >> 24);  // Q32 to Q8
}

constexpr float in_decibels(Level level) { return static_cast<float>(level) / kDecibel; }

static_assert(log2_q16(1) == 0 && log2_q16(3) == 103872 && log2_q16(UINT64_MAX) == (64 << 16) - 1);
static_assert(level_of(uint64_t{1} << 30, 1) == 0 && level_of(uint64_t{4096} << 30, 4096) == 0);
static_assert(level_of(1, 4096) > kSilence && level_of(0, 1) == kSilence);
static_assert(level_of(10, 1) - level_of(1, 1) == 10 * kDecibel);

}  // namespace korvane

#endif
