/**
 * The arithmetic of the fixed-point code, by name.
 *
 * Every sum, product and shift that may leave its range goes through one of these functions, so that
 * a reader sees at the call whether a value wraps, truncates or saturates, and so that the result is
 * defined for every input. Signed overflow is undefined in C++, so wrapping goes through unsigned.
 * Conversions to a narrower signed type keep the low bits and a right shift of a signed value is
 * arithmetic (rounds toward minus infinity); C++20 guarantees both.
 */
#ifndef KORVANE_DSP_FIXED_POINT_H
#define KORVANE_DSP_FIXED_POINT_H

#include <bit>
#include <cstdint>

namespace korvane {

/** a + b modulo 2^32. */
constexpr int32_t add_wrap(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

/** a - b modulo 2^32. */
constexpr int32_t sub_wrap(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

/** -a modulo 2^32; -(-2^31) is -2^31. */
constexpr int32_t neg_wrap(int32_t a) { return sub_wrap(0, a); }

/** a * 2^bits modulo 2^32, bits 0..31. */
constexpr int32_t shl_wrap(int32_t a, int bits) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) << bits);
}

/**
 * A left shift whose count comes from a normalisation and may leave 0..31 on extreme values.
 * A negative count shifts right (arithmetically), one of 32 or more leaves nothing.
 */
constexpr int32_t shl_any(int32_t a, int bits) {
    if (bits < 0) {
        return a >> (bits < -31 ? 31 : -bits);
    }
    return bits > 31 ? 0 : shl_wrap(a, bits);
}

/** floor(a * b / 2^shift), the low 32 bits; the product is exact in 64 bits. */
constexpr int32_t mul_shr(int32_t a, int32_t b, int shift) {
    return static_cast<int32_t>((static_cast<int64_t>(a) * b) >> shift);
}

/** floor(a * c / 65536). With c in Q15 this is half of a*c: where a sum of two is halved, the shift
 * serves as both. a any format, c Q15 or Q16. */
constexpr int32_t mul_half_q15(int32_t a, int32_t c) { return mul_shr(a, c, 16); }

/** floor(a * c / 32768) with c in Q15, formed as (2a * c) >> 16; 2a wraps where |a| >= 2^30. */
constexpr int32_t mul_q15(int32_t a, int32_t c) { return mul_shr(shl_wrap(a, 1), c, 16); }

/** The nearest 16-bit sample: values beyond -32768..32767 saturate. */
constexpr int16_t saturate16(int32_t a) {
    return static_cast<int16_t>(a < -32768 ? -32768 : (a > 32767 ? 32767 : a));
}

/** Zero bits above the highest set one: 32 for 0, 0 for a negative value. */
constexpr int leading_zeros(int32_t a) { return std::countl_zero(static_cast<uint32_t>(a)); }

// The corners, checked at every build.
static_assert(add_wrap(INT32_MAX, 1) == INT32_MIN);
static_assert(sub_wrap(INT32_MIN, 1) == INT32_MAX);
static_assert(neg_wrap(INT32_MIN) == INT32_MIN);
static_assert(shl_wrap(0x40000000, 1) == INT32_MIN);
static_assert(shl_any(-5, -1) == -3 && shl_any(-5, -40) == -1 && shl_any(1, 32) == 0);
static_assert(mul_half_q15(-1, 1) == -1);
static_assert(mul_half_q15(INT32_MIN, -32768) == 0x40000000);
static_assert(mul_q15(1000, 32767) == 999 && mul_q15(-1000, 32767) == -1000);
static_assert(mul_q15(0x40000000, 32767) == -1073709056);  // 2a has wrapped to -2^31
static_assert(saturate16(32768) == 32767 && saturate16(-32769) == -32768);
static_assert(leading_zeros(0) == 32 && leading_zeros(1) == 31 && leading_zeros(-1) == 0);

}  // namespace korvane

#endif
