/**
 * Arithmetic on lanes, for every processor.
 */
#ifndef KORVANE_DSP_LANES_ARITHMETIC_H
#define KORVANE_DSP_LANES_ARITHMETIC_H

// First, what a processor has of its own; it goes before what serves all.
#include "dsp/lanes_moves.h"
#include "dsp/lanes_neon.h"
#include "dsp/lanes_types.h"
#include "dsp/lanes_wasm.h"
#include "dsp/lanes_x86.h"

namespace korvane::KORVANE_ISA {

// NOLINTBEGIN(bugprone-macro-parentheses): a name cannot stand in them
// Where there is more than one register, an operation goes by halves.
#define KORVANE_BY_HALVES(operation)                                                        \
    template <int N, class... Rest>                                                         \
    requires(!OneRegister<N>) KORVANE_INLINE Lanes<N> operation(Lanes<N> a, Rest... rest) { \
        return {operation(a.lower, rest.lower...), operation(a.upper, rest.upper...)};      \
    }
#define KORVANE_BY_HALVES_WITH(operation)                                      \
    template <int kConstant, int N>                                            \
    requires(!OneRegister<N>) KORVANE_INLINE Lanes<N> operation(Lanes<N> a) {  \
        return {operation<kConstant>(a.lower), operation<kConstant>(a.upper)}; \
    }
/** An operation on two vectors, with its result on one register. */
#define KORVANE_OF_TWO(operation, ...)                                                   \
    KORVANE_BY_HALVES(operation)                                                         \
    template <int N>                                                                     \
    requires(OneRegister<N>) KORVANE_INLINE Lanes<N> operation(Lanes<N> a, Lanes<N> b) { \
        return __VA_ARGS__;                                                              \
    }
/** One on a vector and a number of bits. */
#define KORVANE_BY_BITS(operation, ...) \
    KORVANE_BY_HALVES_WITH(operation)   \
    template <int kBits, int N>         \
    requires(OneRegister<N>) KORVANE_INLINE Lanes<N> operation(Lanes<N> a) { return __VA_ARGS__; }
// NOLINTEND(bugprone-macro-parentheses)
KORVANE_OF_TWO(add_wrap, Lanes<N>::of_bits(a.bits() + b.bits()))
KORVANE_OF_TWO(sub_wrap, Lanes<N>::of_bits(a.bits() - b.bits()))
KORVANE_OF_TWO(bit_and, {a.v & b.v})
KORVANE_OF_TWO(bit_or, {a.v | b.v})
KORVANE_OF_TWO(greater, {a.v > b.v})
KORVANE_BY_BITS(shl, Lanes<N>::of_bits(a.bits() << kBits))
KORVANE_BY_BITS(asr, {a.v >> kBits})
KORVANE_BY_BITS(lsr, Lanes<N>::of_bits(a.bits() >> kBits))
KORVANE_OF_TWO(mul_wrap, Lanes<N>::of_bits(a.bits() * b.bits()))
KORVANE_OF_TWO(mul_samples, mul_wrap(a, b))
KORVANE_OF_TWO(mul_narrow, mul_wrap(a, b))
KORVANE_OF_TWO(mul_add_pairs, add_wrap(mul_wrap(asr<16>(a), asr<16>(b)),
                                       mul_wrap(asr<16>(shl<16>(a)), asr<16>(shl<16>(b)))))
// With a = 65536*h + l, l not negative, both products fit 32 bits.
KORVANE_OF_TWO(mul_half_q15,
               add_wrap(mul_wrap(asr<16>(a), b),
                        asr<16>(mul_wrap(bit_and(a, Lanes<N>::broadcast(0xFFFF)), b))))
KORVANE_OF_TWO(mul_half_positive, mul_half_q15(a, b))
KORVANE_OF_TWO(mul_half_negative, mul_half_q15(a, b))
KORVANE_OF_TWO(mul_half_upper, mul_half_q15(a, asr<16>(b)))
KORVANE_OF_TWO(mul_half_upper_positive, mul_half_upper(a, b))
KORVANE_OF_TWO(shl_each, select(greater(b, Lanes<N>::broadcast(31)), Lanes<N>::broadcast(0),
                                Lanes<N>::of_bits(a.bits() << (b.bits() & 31))))
KORVANE_OF_TWO(asr_each, {a.v >> (b.v & 31)})
KORVANE_BY_HALVES(neg_wrap)
KORVANE_BY_HALVES(select)
KORVANE_BY_HALVES(minimum)
KORVANE_BY_HALVES(maximum)
KORVANE_BY_HALVES(add_half_negative)
KORVANE_BY_HALVES(leading_zeros)
KORVANE_BY_HALVES(straight_log2)
KORVANE_BY_HALVES_WITH(mul_half_by)
#if KORVANE_LANES > 1 && !defined(__ARM_NEON)
KORVANE_BY_HALVES(normalising_scale)
KORVANE_BY_HALVES(scale_up)
KORVANE_BY_HALVES(root_scale)
KORVANE_BY_HALVES(root_scale_up)
KORVANE_BY_HALVES(root_scale_down)
#endif
#undef KORVANE_OF_TWO
#undef KORVANE_BY_BITS
#undef KORVANE_BY_HALVES
#undef KORVANE_BY_HALVES_WITH

template <int N>
requires(OneRegister<N>) KORVANE_INLINE Lanes<N> neg_wrap(Lanes<N> a) {
    return Lanes<N>::of_bits(-a.bits());
}
template <int N>
requires(OneRegister<N>) KORVANE_INLINE Lanes<N> select(Lanes<N> mask, Lanes<N> a, Lanes<N> b) {
    return {mask.v != 0 ? a.v : b.v};
}
template <int N>
requires(OneRegister<N>) KORVANE_INLINE Lanes<N> minimum(Lanes<N> a, Lanes<N> b) {
    return {a.v < b.v ? a.v : b.v};
}
template <int N>
requires(OneRegister<N>) KORVANE_INLINE Lanes<N> maximum(Lanes<N> a, Lanes<N> b) {
    return {a.v > b.v ? a.v : b.v};
}
template <int kC, int N>
requires(OneRegister<N>) KORVANE_INLINE Lanes<N> mul_half_by(Lanes<N> a) {
    return mul_half_q15(a, Lanes<N>::broadcast(kC));
}
template <int kC, int N>
KORVANE_INLINE Opposites<Lanes<N>> mul_half_both(Lanes<N> a) {
    if constexpr (OneRegister<N>) {
        // floor(-x) is -floor(x) - 1 unless x is a whole number: a times kC a multiple of 65536.
        constexpr int kWholeFrom = 65536 / (kC & -kC);
        const Lanes<N> product = mul_half_by<kC>(a);
        const Lanes<N> rest = bit_and(a, Lanes<N>::broadcast(kWholeFrom - 1));
        return {product, sub_wrap(greater(rest, Lanes<N>::broadcast(0)), product)};
    } else {
        const auto low = mul_half_both<kC>(a.lower);
        const auto high = mul_half_both<kC>(a.upper);
        return {{low.positive, high.positive}, {low.negative, high.negative}};
    }
}
template <int N>
requires(OneRegister<N>) KORVANE_INLINE Lanes<N> add_half_negative(Lanes<N> sum, Lanes<N> a,
                                                                   Lanes<N> c) {
    return add_wrap(sum, mul_half_negative(a, c));
}
template <int N>
requires(OneRegister<N>) KORVANE_INLINE Lanes<N> leading_zeros(Lanes<N> a) {
    // Of negative values this comes out below 0, of zero above 32.
    const Lanes<N> zeros = sub_wrap(Lanes<N>::broadcast(158), lsr<23>(float_of_highest(a)));
    return maximum(minimum(zeros, Lanes<N>::broadcast(32)), Lanes<N>::broadcast(0));
}
/** By way of the exponent and the fraction of a float, which holds values of 24 bits as they are. The lower
 * bits of greater ones do not count. */
template <int N>
requires(OneRegister<N>) KORVANE_INLINE Lanes<N> straight_log2(Lanes<N> a) {
    const Lanes<N> low =
        bit_and(greater(a, Lanes<N>::broadcast(0xFFFFFF)), Lanes<N>::broadcast(0xFF));
    const auto floats = convert<typename Vectors<N>::Floats>(a.v & ~low.v);
    const Lanes<N> bits = {reinterpret_cast<typename Lanes<N>::Register>(floats)};
    return sub_wrap(lsr<8>(bits), Lanes<N>::broadcast(127 << 15));
}

/** The sum of the lanes, wrapping. */
template <int N>
KORVANE_INLINE int32_t sum_lanes(Lanes<N> a) {
    return sum_lanes(add_wrap(lower(a), upper(a)));
}
template <int N>
KORVANE_INLINE bool any_negative(Lanes<N> a) {
    return any_negative(bit_or(lower(a), upper(a)));
}

template <int N>
KORVANE_INLINE Lanes<N> mul_q15(Lanes<N> a, Lanes<N> c) {
    return mul_half_q15(add_wrap(a, a), c);
}
/** The wrapping negative of the lower half's lanes, or of the upper's; the others as they are. */
template <int N>
KORVANE_INLINE Lanes<N> negate_lower(Lanes<N> a) {
    return blend_halves(neg_wrap(a), a);
}
template <int N>
KORVANE_INLINE Lanes<N> negate_upper(Lanes<N> a) {
    return blend_halves(a, neg_wrap(a));
}

}  // namespace korvane::KORVANE_ISA

#endif
