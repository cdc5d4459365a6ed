/**
 * The transforms of several frames at once, one frame per lane: the same steps as real_fft288 and
 * real_ifft288, with no data moving between lanes, so that every index map is a plain address.
 *
 * A batch is a work area of 144 complex values. The forward transform takes samples from where
 * entry_index puts them and leaves a packed spectrum, also as 144 complex values; the inverse takes
 * a packed spectrum and leaves samples where result_index finds them.
 */
#ifndef KORVANE_DSP_FFT288_BATCH_H
#define KORVANE_DSP_FFT288_BATCH_H

#include <algorithm>
#include <array>
#include <cstring>

#include "dsp/fft288.h"
#include "dsp/fft288_kernels.h"
#include "dsp/simd.h"

namespace korvane::KORVANE_ISA {

// The passes work in place and leave their lines in the butterflies' own order. Where real_fft288
// stores lines bit-reversed in a row, they stand here where dft16 leaves them; the column pass does
// not mind.

/** Where element m of a 144-point sequence enters the work area: row m mod 9, column m mod 16. */
inline constexpr auto entry_index = [] {
    std::array<uint8_t, kComplexSize> index{};
    for (int m = 0; m < kComplexSize; ++m) {
        index[static_cast<unsigned>(m)] =
            static_cast<uint8_t>(kColumns * (m % kRows) + m % kColumns);
    }
    return index;
}();

/** Where line k of the 144-point result is found: line 4k mod 9 of a column, line 9k mod 16 of a
 * row. */
inline constexpr auto result_index = [] {
    std::array<uint8_t, kComplexSize> index{};
    for (int k = 0; k < kComplexSize; ++k) {
        const int column_line = 4 * k % kRows;
        const int row_line = 9 * k % kColumns;
        const int row = 3 * (column_line % 3) + column_line / 3;
        const int column = 4 * (row_line % 4) + row_line / 4;
        index[static_cast<unsigned>(k)] = static_cast<uint8_t>(kColumns * row + column);
    }
    return index;
}();

/** Samples 2m and 2m + 1 of the frames, or a bin, as they enter or as they leave the work area. */
template <class Z>
// cppcheck-suppress constParameter; what it refers to is written
KORVANE_INLINE Z& entry(Z* work, int m) {
    return work[entry_index[static_cast<unsigned>(m)]];
}
template <class Z>
KORVANE_INLINE const Z& result(const Z* work, int m) {
    return work[result_index[static_cast<unsigned>(m)]];
}

/** Complex values with both parts in one vector: the real parts in its lower half, the imaginary
 * ones in the upper. The passes take half the instructions that way. */
template <class P>
struct Packed {
    P v;
};

template <class P>
KORVANE_INLINE Packed<P> add(Packed<P> a, Packed<P> b) {
    return {add_wrap(a.v, b.v)};
}
template <class P>
KORVANE_INLINE Packed<P> sub(Packed<P> a, Packed<P> b) {
    return {sub_wrap(a.v, b.v)};
}
template <class P>
KORVANE_INLINE Packed<P> half(Packed<P> a) {
    return {asr<1>(a.v)};
}
template <class P>
KORVANE_INLINE Packed<P> twice(Packed<P> a) {
    return {add_wrap(a.v, a.v)};
}
template <Direction kDirection, class P>
KORVANE_INLINE Packed<P> quarter_turn(Packed<P> a) {
    const P turned = swap_halves(a.v);
    return {kDirection == Direction::kForward ? negate_upper(turned) : negate_lower(turned)};
}
template <int kC, class P>
KORVANE_INLINE Packed<P> half_scale(Packed<P> a) {
    return {mul_half_q15<kC>(a.v)};
}
template <int kC, class P>
KORVANE_INLINE Turns<Packed<P>> add_half_scaled_turns(Packed<P> a, Packed<P> b) {
    const auto sums = add_half_both<kC>(a.v, swap_halves(b.v));
    return {{blend_halves(sums.positive, sums.negative)},
            {blend_halves(sums.negative, sums.positive)}};
}

template <class V>
struct ComplexOf {
    using type = Complex<V>;
};
template <>
struct ComplexOf<Duo> {
    using type = Packed<Quad>;
};
#if defined(__AVX2__)
template <>
struct ComplexOf<Quad> {
    using type = Packed<Wide>;
};
#endif
/** A complex value of every frame of a batch, packed where one vector has room for both parts. */
template <class V>
using ComplexBatch = typename ComplexOf<V>::type;

/** f of each part, and of the same part of the rest. */
template <class F, class V, class... Rest>
KORVANE_INLINE Complex<V> on_parts(F f, const Complex<V>& a, const Rest&... rest) {
    return {f(a.re, rest.re...), f(a.im, rest.im...)};
}
template <class F, class P, class... Rest>
KORVANE_INLINE Packed<P> on_parts(F f, const Packed<P>& a, const Rest&... rest) {
    return {f(a.v, rest.v...)};
}

template <class V>
KORVANE_INLINE Complex<V> parts(const Complex<V>& z) {
    return {z.re, z.im};
}
KORVANE_INLINE Complex<Duo> parts(Packed<Quad> z) { return {z.v, swap_halves(z.v)}; }
#if defined(__AVX2__)
KORVANE_INLINE Complex<Quad> parts(Packed<Wide> z) { return {group0(z.v), group1(z.v)}; }
#endif

/** The complex value of these parts; of the same parts in every frame. */
template <class V>
KORVANE_INLINE ComplexBatch<V> from_parts(V re, V im) {
    return {re, im};
}
template <class V>
KORVANE_INLINE ComplexBatch<V> broadcast_parts(int32_t re, int32_t im) {
    return {V::broadcast(re), V::broadcast(im)};
}
template <>
KORVANE_INLINE Packed<Quad> from_parts<Duo>(Duo re, Duo im) {
    return {lower_halves(re, im)};
}
template <>
KORVANE_INLINE Packed<Quad> broadcast_parts<Duo>(int32_t re, int32_t im) {
    return {Quad::broadcast_halves(re, im)};
}
#if defined(__AVX2__)
template <>
KORVANE_INLINE Packed<Wide> from_parts<Quad>(Quad re, Quad im) {
    return {Wide::join(re, im)};
}
template <>
KORVANE_INLINE Packed<Wide> broadcast_parts<Quad>(int32_t re, int32_t im) {
    return {Wide::broadcast_halves(re, im)};
}
#endif

/** The real part as both parts; the imaginary one. */
template <class V>
KORVANE_INLINE Complex<V> real_twice(const Complex<V>& z) {
    return {z.re, z.re};
}
template <class P>
KORVANE_INLINE Packed<P> real_twice(Packed<P> z) {
    return {lower_halves(z.v, z.v)};
}
template <class V>
KORVANE_INLINE Complex<V> imaginary_twice(const Complex<V>& z) {
    return {z.im, z.im};
}
template <class P>
KORVANE_INLINE Packed<P> imaginary_twice(Packed<P> z) {
    return {upper_halves(z.v, z.v)};
}

/** Eight samples of each frame's signal, as four complex values: sample 2i is the real part of
 * out[i], sample 2i + 1 its imaginary part. */
template <class V>
KORVANE_INLINE void load_complex_samples(const int16_t* const* lane, Complex<V>* out) {
    V x[8];
    load_samples(lane, x);
    for (int i = 0; i < 4; ++i) {
        out[i] = {x[2 * i], x[2 * i + 1]};
    }
}
template <class P>
KORVANE_INLINE void load_complex_samples(const int16_t* const* lane, Packed<P>* out) {
    P x[4];
    load_sample_pairs(lane, x);
    for (int i = 0; i < 4; ++i) {
        out[i] = {x[i]};
    }
}
/** The reverse, saturated to 16 bits. */
template <class V>
KORVANE_INLINE void store_complex_samples(const Complex<V>* in, int16_t* const* lane) {
    V x[8];
    for (int i = 0; i < 4; ++i) {
        x[2 * i] = in[i].re;
        x[2 * i + 1] = in[i].im;
    }
    store_samples(x, lane);
}
template <class P>
KORVANE_INLINE void store_complex_samples(const Packed<P>* in, int16_t* const* lane) {
    P x[4];
    for (int i = 0; i < 4; ++i) {
        x[i] = in[i].v;
    }
    store_sample_pairs(x, lane);
}

// The split needs the parts in separate vectors. Two packed bins give two full ones: the first bin
// in their lower halves, the second in the upper.

template <class Z>
inline constexpr int kBinsPerSplit = 1;
template <class P>
inline constexpr int kBinsPerSplit<Packed<P>> = 2;

template <class V>
KORVANE_INLINE Complex<V> load_bins(const Complex<V>& bin, const Complex<V>& /*second*/) {
    return {bin.re, bin.im};
}
template <class P>
KORVANE_INLINE Complex<P> load_bins(const Packed<P>& first, const Packed<P>& second) {
    return {lower_halves(first.v, second.v), upper_halves(first.v, second.v)};
}
template <class V>
KORVANE_INLINE void store_bins(Complex<V>& bin, Complex<V>& /*second*/, const Complex<V>& z) {
    bin.re = z.re;
    bin.im = z.im;
}
template <class P>
KORVANE_INLINE void store_bins(Packed<P>& first, Packed<P>& second, Complex<P> z) {
    first.v = lower_halves(z.re, z.im);
    second.v = upper_halves(z.re, z.im);
}

/** Entry 2k of twd576 for as many bins as a split has, the first of which is k. */
template <class V, int kBins>
struct SplitTwiddles {
    V c;
    V s;

    KORVANE_INLINE explicit SplitTwiddles(int k) {
        V both;
        if constexpr (kBins == 1) {
            both = V::broadcast(entry_of(k));
        } else {
            both = V::broadcast_halves(entry_of(k), entry_of(k + 1));
        }
        c = bit_and(both, V::broadcast(0xFFFF));
        s = asr<16>(both);
    }

  private:
    KORVANE_INLINE static int32_t entry_of(int k) {
        int32_t pair = 0;
        std::memcpy(&pair, twd576[2 * k], sizeof pair);
        return pair;
    }
};

/** The 144-point transform of the work area, [0..143], in place. */
template <Direction kDirection, class Z>
void transform144(Z* work) {
    for (int row = 0; row < kRows; ++row) {
        Z* const base = work + kColumns * row;
        Z a[kColumns];
        for (int i = 0; i < kColumns; ++i) {
            a[i] = base[i];
        }
        dft16<kDirection>(a);
        for (int i = 0; i < kColumns; ++i) {
            base[i] = a[i];
        }
    }
    for (int column = 0; column < kColumns; ++column) {
        Z* const base = work + column;
        Z e[kRows];
        for (int i = 0; i < kRows; ++i) {
            e[i] = base[kColumns * i];
        }
        dft9<kDirection>(e);
        for (int i = 0; i < kRows; ++i) {
            base[kColumns * i] = e[i];
        }
    }
}

/**
 * Forward transform of a batch.
 *
 * @param work      [0..143], the frames where entry puts them; overwritten
 * @param spectrum  [0..143], the packed spectra as complex values, every part shifted right by
 *                  kShift bits
 */
template <int kShift, class V>
void forward_batch(ComplexBatch<V>* work, ComplexBatch<V>* spectrum) {
    constexpr int kStep = kBinsPerSplit<ComplexBatch<V>>;
    constexpr int kMiddle = kComplexSize / 2;
    transform144<Direction::kForward>(work);
    for (int next = 1; next < kMiddle; next += kStep) {
        const int k = std::min(next, kMiddle - kStep);  // of 71, the last pair repeats a bin
        const int mirrored = kComplexSize - k;
        auto a = load_bins(result(work, k), result(work, k + kStep - 1));
        auto b = load_bins(result(work, mirrored), result(work, mirrored - kStep + 1));
        const SplitTwiddles<decltype(a.re), kStep> w(k);
        split(a, b, w.c, w.s);
        const auto shifted = [](auto x) { return asr<kShift>(x); };
        store_bins(spectrum[k], spectrum[k + kStep - 1], on_parts(shifted, a));
        store_bins(spectrum[mirrored], spectrum[mirrored - kStep + 1], on_parts(shifted, b));
    }
    const auto dc = parts(result(work, 0));
    spectrum[0] =
        from_parts<V>(asr<kShift>(add_wrap(dc.re, dc.im)), asr<kShift>(sub_wrap(dc.re, dc.im)));
    const auto middle = parts(result(work, kMiddle));
    spectrum[kMiddle] = from_parts<V>(asr<kShift>(middle.re), asr<kShift>(neg_wrap(middle.im)));
}

/**
 * Inverse transform of a batch.
 *
 * @param spectrum  [0..143], packed spectra as complex values; only read
 * @param work      [0..143], the frames where result finds them
 */
template <class V>
void inverse_batch(const ComplexBatch<V>* spectrum, ComplexBatch<V>* work) {
    constexpr int kStep = kBinsPerSplit<ComplexBatch<V>>;
    constexpr int kMiddle = kComplexSize / 2;
    for (int next = 1; next < kMiddle; next += kStep) {
        const int k = std::min(next, kMiddle - kStep);
        const int mirrored = kComplexSize - k;
        auto a = load_bins(spectrum[k], spectrum[k + kStep - 1]);
        auto b = load_bins(spectrum[mirrored], spectrum[mirrored - kStep + 1]);
        const SplitTwiddles<decltype(a.re), kStep> w(k);
        unsplit(a, b, w.c, w.s);
        store_bins(entry(work, k), entry(work, k + kStep - 1), a);
        store_bins(entry(work, mirrored), entry(work, mirrored - kStep + 1), b);
    }
    const auto ends = parts(spectrum[0]);
    entry(work, 0) = from_parts<V>(add_wrap(ends.re, ends.im), sub_wrap(ends.re, ends.im));
    const auto middle = parts(spectrum[kMiddle]);
    entry(work, kMiddle) = from_parts<V>(middle.re, neg_wrap(middle.im));
    transform144<Direction::kInverse>(work);
}

}  // namespace korvane::KORVANE_ISA

#endif
