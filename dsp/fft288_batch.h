/**
 * The transforms of several frames at once, one frame per lane: the same steps as real_fft288 and
 * real_ifft288, with no data moving between lanes, so that every index map is a plain address.
 *
 * A batch is a work area of 144 complex values. The forward transform takes samples from where
 * entry_index puts them and leaves a packed spectrum of 288 values; the inverse takes a packed
 * spectrum and leaves samples where result_index finds them.
 */
#ifndef KORVANE_DSP_FFT288_BATCH_H
#define KORVANE_DSP_FFT288_BATCH_H

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

/** Entry 2k of twd576 in every lane; one load of both numbers. */
template <class V>
struct SplitTwiddle {
    V c;
    V s;

    KORVANE_INLINE explicit SplitTwiddle(int k) {
        int32_t pair = 0;
        std::memcpy(&pair, twd576[2 * k], sizeof pair);
        const V both = V::broadcast(pair);
        c = bit_and(both, V::broadcast(0xFFFF));
        s = asr<16>(both);
    }
};

/** Frame words 2m and 2m + 1 of a batch as they enter, or as they leave, the work area. */
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

/** How the work area keeps the complex values of a batch: two frames packed, more in two parts. */
template <class V>
struct WorkElement {
    using type = Complex<V>;
};
template <>
struct WorkElement<Duo> {
    using type = Packed<Quad>;
};
template <class V>
using Work = typename WorkElement<V>::type;

template <class V>
KORVANE_INLINE Complex<V> load_parts(const Complex<V>& z) {
    return z;
}
KORVANE_INLINE Complex<Duo> load_parts(const Packed<Quad>& z) { return {z.v, swap_halves(z.v)}; }

template <class V>
KORVANE_INLINE void store_parts(Complex<V>& z, V re, V im) {
    z = {re, im};
}
KORVANE_INLINE void store_parts(Packed<Quad>& z, Duo re, Duo im) { z.v = lower_halves(re, im); }

/** What the passes work on, loaded from and stored to the work area. */
template <class Z>
KORVANE_INLINE Z load_complex(const Z* z) {
    return *z;
}
template <class Z>
KORVANE_INLINE void store_complex(Z* z, Z a) {
    *z = a;
}

#if defined(__AVX2__)

// A Complex<Quad> lies in memory as a packed Wide does.
KORVANE_INLINE Packed<Wide> load_complex(const Complex<Quad>* z) {
    return {Wide::load(reinterpret_cast<const int32_t*>(z))};
}
KORVANE_INLINE void store_complex(Complex<Quad>* z, Packed<Wide> a) {
    store(reinterpret_cast<int32_t*>(z), a.v);
}

#endif

/** The 144-point transform of the work area, [0..143], in place. */
template <Direction kDirection, class Z>
void transform144(Z* work) {
    using C = decltype(load_complex(work));
    for (int row = 0; row < kRows; ++row) {
        Z* const base = work + kColumns * row;
        C a[kColumns];
        for (int i = 0; i < kColumns; ++i) {
            a[i] = load_complex(base + i);
        }
        dft16<kDirection>(a);
        for (int i = 0; i < kColumns; ++i) {
            store_complex(base + i, a[i]);
        }
    }
    for (int column = 0; column < kColumns; ++column) {
        Z* const base = work + column;
        C e[kRows];
        for (int i = 0; i < kRows; ++i) {
            e[i] = load_complex(base + kColumns * i);
        }
        dft9<kDirection>(e);
        for (int i = 0; i < kRows; ++i) {
            store_complex(base + kColumns * i, e[i]);
        }
    }
}

/**
 * Forward transform of a batch.
 *
 * @param work      [0..143], the frames where entry puts them; overwritten
 * @param spectrum  [0..287], the packed spectra, every value shifted right by kShift bits
 */
template <int kShift, class V>
void forward_batch(Work<V>* work, V* spectrum) {
    transform144<Direction::kForward>(work);
    const Complex<V> dc = load_parts(result(work, 0));
    spectrum[0] = asr<kShift>(add_wrap(dc.re, dc.im));
    spectrum[1] = asr<kShift>(sub_wrap(dc.re, dc.im));
    const Complex<V> middle = load_parts(result(work, kComplexSize / 2));
    spectrum[kComplexSize] = asr<kShift>(middle.re);
    spectrum[kComplexSize + 1] = asr<kShift>(neg_wrap(middle.im));
    for (int k = 1; k < kComplexSize / 2; ++k) {
        const int mirrored = kComplexSize - k;
        const SplitTwiddle<V> w(k);
        Complex<V> a = load_parts(result(work, k));
        Complex<V> b = load_parts(result(work, mirrored));
        split<V>(a, b, w.c, w.s);
        spectrum[2 * k] = asr<kShift>(a.re);
        spectrum[2 * k + 1] = asr<kShift>(a.im);
        spectrum[2 * mirrored] = asr<kShift>(b.re);
        spectrum[2 * mirrored + 1] = asr<kShift>(b.im);
    }
}

/**
 * Inverse transform of a batch.
 *
 * @param spectrum  [0..287], packed spectra; only read
 * @param work      [0..143], the frames where result finds them
 */
template <class V>
void inverse_batch(const V* spectrum, Work<V>* work) {
    store_parts(entry(work, 0), V(add_wrap(spectrum[0], spectrum[1])),
                V(sub_wrap(spectrum[0], spectrum[1])));
    store_parts(entry(work, kComplexSize / 2), spectrum[kComplexSize],
                V(neg_wrap(spectrum[kComplexSize + 1])));
    for (int k = 1; k < kComplexSize / 2; ++k) {
        const int mirrored = kComplexSize - k;
        const SplitTwiddle<V> w(k);
        Complex<V> a = {spectrum[2 * k], spectrum[2 * k + 1]};
        Complex<V> b = {spectrum[2 * mirrored], spectrum[2 * mirrored + 1]};
        unsplit<V>(a, b, w.c, w.s);
        store_parts(entry(work, k), a.re, a.im);
        store_parts(entry(work, mirrored), b.re, b.im);
    }
    transform144<Direction::kInverse>(work);
}

}  // namespace korvane::KORVANE_ISA

#endif
