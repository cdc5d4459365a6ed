/**
 * The transforms of F frames at once, one to a lane: no data moves between lanes, so that every index map
 * is a plain address.
 *
 * A batch is a work area of 144 complex values, packed as in dsp/fft288_kernels.h. The forward transform
 * takes samples from where entry puts them and leaves a packed spectrum, also as 144 complex values; the
 * inverse takes a packed spectrum and leaves samples where result finds them.
 */
#ifndef KORVANE_DSP_FFT288_BATCH_H
#define KORVANE_DSP_FFT288_BATCH_H

#include <algorithm>
#include <array>
#include <cstring>

#include "dsp/fft288.h"
#include "dsp/fft288_kernels.h"

namespace korvane::KORVANE_ISA {

/** Where element m of a 144-point sequence enters the work area: row m mod 9, column m mod 16. */
inline constexpr auto entry_index = [] {
    std::array<uint8_t, kComplexSize> index{};
    for (int m = 0; m < kComplexSize; ++m) {
        index[static_cast<unsigned>(m)] =
            static_cast<uint8_t>(kColumns * (m % kRows) + m % kColumns);
    }
    return index;
}();

/** Where line k of the 144-point result is found: line 4k mod 9 of a column, line 9k mod 16 of a row,
 * each where its pass leaves it. 4 is the inverse of 16 modulo 9, and 9 its own inverse modulo 16. */
inline constexpr auto result_index = [] {
    std::array<uint8_t, kComplexSize> index{};
    for (int k = 0; k < kComplexSize; ++k) {
        const int row = dft9_position(4 * k % kRows);
        const int column = dft16_position(9 * k % kColumns);
        index[static_cast<unsigned>(k)] = static_cast<uint8_t>(kColumns * row + column);
    }
    return index;
}();

/** Where samples 2m and 2m + 1 of the frames, or a bin, enter the work area; where they leave it. */
inline constexpr auto entry = [](auto* work, int m) -> auto& {
    return work[entry_index[static_cast<unsigned>(m)]];
};
inline constexpr auto result = [](const auto* work, int m) -> const auto& {
    return work[result_index[static_cast<unsigned>(m)]];
};

// The split needs real and imaginary parts in vectors of their own. Where a packed value fills no more
// than a register, two bins give two full ones: the first bin in their lower halves, the second in the
// upper.

template <int kFrames>
inline constexpr int kBinsPerSplit = OneRegister<2 * kFrames> ? 2 : 1;

/** Bins k and, where the split takes two, next. */
template <class Z>
KORVANE_INLINE auto load_bins(Z bin, Z next) {
    if constexpr (OneRegister<Z::kLanes>) {
        return Complex<Z>{lower_halves(bin, next), upper_halves(bin, next)};
    } else {
        return Complex<decltype(bin.lower)>{bin.lower, bin.upper};
    }
}
template <class Z, class V>
KORVANE_INLINE void store_bins(Z& bin, Z& next, Complex<V> a) {
    if constexpr (OneRegister<Z::kLanes>) {
        bin = lower_halves(a.re, a.im);
        next = upper_halves(a.re, a.im);
    } else {
        bin = {a.re, a.im};
    }
}
/** Entry 2k of twd576 for the bins of a split, the first of which is k. */
template <class V, int kBins>
KORVANE_INLINE Complex<V> split_twiddles(int k) {
    if constexpr (kLanesOf<V> == 1) {
        return {twd576[2 * k][0], twd576[2 * k][1]};
    } else {
        V words;
        if constexpr (kBins == 1) {
            words = constant<V>(load_word(twd576[2 * k]));
        } else {
            words = broadcast_words<V, 2>(twd576[2 * k]);
        }
        return {bit_and(words, constant<V>(0xFFFF)), asr<16>(words)};
    }
}

/** The 144-point transform of the work area, [0..143], in place. */
template <Direction kDirection, class Z>
void transform144(Z* work) {
    for (int row = 0; row < kRows; ++row) {
        dft16<kDirection>(work + kColumns * row);
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
 * @param spectrum  [0..143], the packed spectra as complex values, every part shifted right by kShift
 *                  bits
 */
template <int kShift, int kFrames>
void forward_batch(Lanes<2 * kFrames>* work, Lanes<2 * kFrames>* spectrum) {
    constexpr int kStep = kBinsPerSplit<kFrames>;
    constexpr int kMiddle = kComplexSize / 2;
    transform144<Direction::kForward>(work);
    for (int next = 1; next < kMiddle; next += kStep) {
        const int k = std::min(next, kMiddle - kStep);  // of 71, the last pair repeats a bin
        const int mirrored = kComplexSize - k;
        auto a = load_bins(result(work, k), result(work, k + kStep - 1));
        auto b = load_bins(result(work, mirrored), result(work, mirrored - kStep + 1));
        split(a, b, split_twiddles<decltype(a.re), kStep>(k));
        a = {asr<kShift>(a.re), asr<kShift>(a.im)};
        b = {asr<kShift>(b.re), asr<kShift>(b.im)};
        store_bins(spectrum[k], spectrum[k + kStep - 1], a);
        store_bins(spectrum[mirrored], spectrum[mirrored - kStep + 1], b);
    }
    spectrum[0] = asr<kShift>(sum_and_difference(result(work, 0)));
    spectrum[kMiddle] = asr<kShift>(negate_upper(result(work, kMiddle)));
}

/**
 * Inverse transform of a batch.
 *
 * @param spectrum  [0..143], packed spectra as complex values; only read
 * @param work      [0..143], the frames where result finds them
 */
template <int kFrames>
void inverse_batch(const Lanes<2 * kFrames>* spectrum, Lanes<2 * kFrames>* work) {
    constexpr int kStep = kBinsPerSplit<kFrames>;
    constexpr int kMiddle = kComplexSize / 2;
    for (int next = 1; next < kMiddle; next += kStep) {
        const int k = std::min(next, kMiddle - kStep);
        const int mirrored = kComplexSize - k;
        auto a = load_bins(spectrum[k], spectrum[k + kStep - 1]);
        auto b = load_bins(spectrum[mirrored], spectrum[mirrored - kStep + 1]);
        unsplit(a, b, split_twiddles<decltype(a.re), kStep>(k));
        store_bins(entry(work, k), entry(work, k + kStep - 1), a);
        store_bins(entry(work, mirrored), entry(work, mirrored - kStep + 1), b);
    }
    entry(work, 0) = sum_and_difference(spectrum[0]);
    entry(work, kMiddle) = negate_upper(spectrum[kMiddle]);
    transform144<Direction::kInverse>(work);
}

}  // namespace korvane::KORVANE_ISA

#endif
