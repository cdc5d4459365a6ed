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
template <class V>
KORVANE_INLINE Complex<V>& entry(Complex<V>* work, int m) {
    return work[entry_index[static_cast<unsigned>(m)]];
}
template <class V>
KORVANE_INLINE const Complex<V>& result(const Complex<V>* work, int m) {
    return work[result_index[static_cast<unsigned>(m)]];
}

#if defined(__AVX2__)

/** Both parts of four complex values in one vector: four real parts, then four imaginary ones. That
 * is how a Complex<Quad> lies in memory, so the passes below take half the instructions. */
struct PackedComplex {
    Wide v;
};

KORVANE_INLINE PackedComplex add(PackedComplex a, PackedComplex b) { return {add_wrap(a.v, b.v)}; }
KORVANE_INLINE PackedComplex sub(PackedComplex a, PackedComplex b) { return {sub_wrap(a.v, b.v)}; }
KORVANE_INLINE PackedComplex half(PackedComplex a) { return {asr<1>(a.v)}; }
template <Direction kDirection>
KORVANE_INLINE PackedComplex quarter_turn(PackedComplex a) {
    const Wide turned = swap_groups(a.v);
    return {kDirection == Direction::kForward ? negate_group1(turned) : negate_group0(turned)};
}
KORVANE_INLINE PackedComplex twice(PackedComplex a) { return {add_wrap(a.v, a.v)}; }
template <int kC>
KORVANE_INLINE PackedComplex half_scale(PackedComplex a) {
    return {mul_half_q15<kC>(a.v)};
}
template <int kC>
KORVANE_INLINE PackedComplex half_scaled_turn(PackedComplex a) {
    return {mul_half_by_group<kC, -kC>(swap_groups(a.v))};
}

KORVANE_INLINE PackedComplex load_complex(const Complex<Quad>* z) {
    return {Wide::load(reinterpret_cast<const int32_t*>(z))};
}
KORVANE_INLINE void store_complex(Complex<Quad>* z, PackedComplex a) {
    store(reinterpret_cast<int32_t*>(z), a.v);
}
/** One store, so that the passes find the value in one piece when they load it. */
KORVANE_INLINE void store_parts(Complex<Quad>* z, Quad re, Quad im) {
    store_complex(z, {Wide::join(re, im)});
}

#endif

template <class V>
KORVANE_INLINE Complex<V> load_complex(const Complex<V>* z) {
    return *z;
}
template <class V>
KORVANE_INLINE void store_complex(Complex<V>* z, Complex<V> a) {
    *z = a;
}

template <class V>
KORVANE_INLINE void store_parts(Complex<V>* z, V re, V im) {
    *z = {re, im};
}

/** The 144-point transform of the work area, [0..143], in place. */
template <Direction kDirection, class V>
void transform144(Complex<V>* work) {
    using C = decltype(load_complex(work));
    for (int row = 0; row < kRows; ++row) {
        Complex<V>* const base = work + kColumns * row;
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
        Complex<V>* const base = work + column;
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
void forward_batch(Complex<V>* work, V* spectrum) {
    transform144<Direction::kForward>(work);
    const Complex<V>& dc = result(work, 0);
    spectrum[0] = asr<kShift>(add_wrap(dc.re, dc.im));
    spectrum[1] = asr<kShift>(sub_wrap(dc.re, dc.im));
    const Complex<V>& middle = result(work, kComplexSize / 2);
    spectrum[kComplexSize] = asr<kShift>(middle.re);
    spectrum[kComplexSize + 1] = asr<kShift>(neg_wrap(middle.im));
    for (int k = 1; k < kComplexSize / 2; ++k) {
        const int mirrored = kComplexSize - k;
        const SplitTwiddle<V> w(k);
        Complex<V> a = result(work, k);
        Complex<V> b = result(work, mirrored);
        split(a, b, w.c, w.s);
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
void inverse_batch(const V* spectrum, Complex<V>* work) {
    entry(work, 0) = {add_wrap(spectrum[0], spectrum[1]), sub_wrap(spectrum[0], spectrum[1])};
    entry(work, kComplexSize / 2) = {spectrum[kComplexSize], neg_wrap(spectrum[kComplexSize + 1])};
    for (int k = 1; k < kComplexSize / 2; ++k) {
        const int mirrored = kComplexSize - k;
        const SplitTwiddle<V> w(k);
        Complex<V> a = {spectrum[2 * k], spectrum[2 * k + 1]};
        Complex<V> b = {spectrum[2 * mirrored], spectrum[2 * mirrored + 1]};
        unsplit(a, b, w.c, w.s);
        store_parts(&entry(work, k), a.re, a.im);
        store_parts(&entry(work, mirrored), b.re, b.im);
    }
    transform144<Direction::kInverse>(work);
}

}  // namespace korvane::KORVANE_ISA

#endif
