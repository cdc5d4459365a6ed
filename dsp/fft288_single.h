/**
 * One transform of 288 values, for hosts that call real_fft288 and real_ifft288 themselves; the block
 * pipeline transforms several frames at once (dsp/fft288_batch.h).
 *
 * The lanes are rows in the first pass and columns in the second, in groups of as many as a vector takes.
 * Between the passes and the split a sequence or a spectrum lies in an array of complex pairs in its
 * natural order.
 */
#ifndef KORVANE_DSP_FFT288_SINGLE_H
#define KORVANE_DSP_FFT288_SINGLE_H

#include <algorithm>
#include <array>

#include "dsp/fft288.h"
#include "dsp/fft288_kernels.h"

namespace korvane::KORVANE_ISA {

inline constexpr int kGroup = kNativeLanes >= 4 ? 4 : 1;  ///< rows or columns in a vector
inline constexpr int kRowGroups = (kRows + kGroup - 1) / kGroup;
inline constexpr int kColumnGroups = kColumns / kGroup;

/** Which complex values of an array the lanes of a group stand for. */
template <int kSize>
struct Places {
    uint8_t lane[size_t{kSize}];
};

template <int kSize>
KORVANE_INLINE Lanes<2 * kSize> gather(const int32_t* z, const Places<kSize>& place) {
    if constexpr (kSize == 1) {
        return Lanes<2>::load(z + 2 * place.lane[0]);
    } else {
        const auto a = Lanes<kSize>::load_two(z + 2 * place.lane[0], z + 2 * place.lane[1]);
        const auto b = Lanes<kSize>::load_two(z + 2 * place.lane[2], z + 2 * place.lane[3]);
        return join(even_lanes(a, b), odd_lanes(a, b));
    }
}
template <int kSize>
KORVANE_INLINE void scatter(int32_t* z, const Places<kSize>& place, Lanes<2 * kSize> a) {
    if constexpr (kSize == 1) {
        store(z + 2 * place.lane[0], a);
    } else {
        store_two(z + 2 * place.lane[0], z + 2 * place.lane[1], zip_lower(lower(a), upper(a)));
        store_two(z + 2 * place.lane[2], z + 2 * place.lane[3], zip_upper(lower(a), upper(a)));
    }
}

/** Which element of the sequence enters at each column of each group of rows: the one that is row modulo
 * 9 and column modulo 16. Beyond the last row the last group repeats it. */
inline constexpr auto kElements = [] {
    std::array<std::array<Places<kGroup>, kColumns>, kRowGroups> elements{};
    for (unsigned group = 0; group < kRowGroups; ++group) {
        for (unsigned column = 0; column < kColumns; ++column) {
            for (unsigned l = 0; l < kGroup; ++l) {
                const unsigned row = std::min(kGroup * group + l, kRows - 1U);
                elements[group][column].lane[l] =
                    static_cast<uint8_t>((64 * row + 81 * column) % kComplexSize);
            }
        }
    }
    return elements;
}();

/** Which line of the result the column pass leaves at each of its positions, for each group of columns:
 * line k stands at line 4k mod 9 of a column and line 9k mod 16 of the rows. */
inline constexpr auto kLines = [] {
    std::array<std::array<Places<kGroup>, kRows>, kColumnGroups> lines{};
    for (unsigned k = 0; k < kComplexSize; ++k) {
        const unsigned row_line = 9 * k % kColumns;
        const auto position = static_cast<unsigned>(dft9_position(static_cast<int>(4 * k % kRows)));
        lines[row_line / kGroup][position].lane[row_line % kGroup] = static_cast<uint8_t>(k);
    }
    return lines;
}();

/**
 * The 144-point transform.
 *
 * @param out  [0..287] the result, 144 complex values; may be in
 * @param in   [0..287] 144 complex values
 */
template <Direction kDirection>
void single_transform144(int32_t* out, const int32_t* in) {
    int32_t re[kRowGroups * kGroup][kColumns];  // lines of the rows
    int32_t im[kRowGroups * kGroup][kColumns];
    for (unsigned group = 0; group < kRowGroups; ++group) {
        Lanes<2 * kGroup> a[kColumns];
        for (unsigned column = 0; column < kColumns; ++column) {
            a[column] = gather(in, kElements[group][column]);
        }
        dft16<kDirection>(a);
        for (int line = 0; line < kColumns; line += kGroup) {
            I32<kGroup> re_lines[kGroup];
            I32<kGroup> im_lines[kGroup];
            for (int i = 0; i < kGroup; ++i) {
                re_lines[i] = lower(a[dft16_position(line + i)]);
                im_lines[i] = upper(a[dft16_position(line + i)]);
            }
            transpose_square(re_lines);
            transpose_square(im_lines);
            for (unsigned l = 0; l < kGroup; ++l) {
                store(re[kGroup * group + l] + line, re_lines[l]);
                store(im[kGroup * group + l] + line, im_lines[l]);
            }
        }
    }
    for (unsigned group = 0; group < kColumnGroups; ++group) {
        Lanes<2 * kGroup> e[kRows];
        for (unsigned row = 0; row < kRows; ++row) {
            e[row] = join(load_lanes<I32<kGroup>>(re[row] + kGroup * group),
                          load_lanes<I32<kGroup>>(im[row] + kGroup * group));
        }
        dft9<kDirection>(e);
        for (unsigned position = 0; position < kRows; ++position) {
            scatter(out, kLines[group][position], e[position]);
        }
    }
}

/** As many consecutive complex values as V has lanes. */
template <class V>
KORVANE_INLINE Complex<V> load_complex(const int32_t* z) {
    const V a = load_lanes<V>(z);
    const V b = load_lanes<V>(z + kLanesOf<V>);
    if constexpr (kLanesOf<V> == 1) {
        return {a, b};
    } else {
        return {even_lanes(a, b), odd_lanes(a, b)};
    }
}
template <class V>
KORVANE_INLINE void store_complex(int32_t* z, Complex<V> a) {
    if constexpr (kLanesOf<V> == 1) {
        store(z, a.re);
        store(z + 1, a.im);
    } else {
        store(z, zip_lower(a.re, a.im));
        store(z + kLanesOf<V>, zip_upper(a.re, a.im));
    }
}
template <class V>
KORVANE_INLINE Complex<V> backwards(Complex<V> a) {
    return {reverse(a.re), reverse(a.im)};
}
/** Entries 2k, 2k + 2, ... of twd576. */
template <class V>
KORVANE_INLINE Complex<V> twiddles_from(int k) {
    if constexpr (kLanesOf<V> == 1) {
        return {twd576[2 * k][0], twd576[2 * k][1]};
    } else {
        const V words =
            even_lanes(V::load_words(twd576[2 * k]), V::load_words(twd576[2 * k + kLanesOf<V>]));
        return {bit_and(words, V::broadcast(0xFFFF)), asr<16>(words)};
    }
}

/** f on each pair of mirrored values of `in`, 1 to 71 and 143 to 73, into `out`. */
template <class F, class V = I32<kGroup>>
KORVANE_INLINE void for_mirrored_pairs(int32_t* out, const int32_t* in, F f) {
    constexpr int kLast = kComplexSize / 2 - kGroup;
    for (int next = 1; next < kComplexSize / 2; next += kGroup) {
        const int k = std::min(next, kLast);  // the last group repeats a bin
        const int mirrored = kComplexSize - k - kGroup + 1;
        Complex<V> a = load_complex<V>(in + 2 * k);
        Complex<V> b = backwards(load_complex<V>(in + 2 * mirrored));
        f(a, b, twiddles_from<V>(k));
        store_complex(out + 2 * k, a);
        store_complex(out + 2 * mirrored, backwards(b));
    }
}

/** The packed spectrum from the lines of the transform; both [0..287], apart from each other. */
KORVANE_INLINE void split_lines(int32_t* spectrum, const int32_t* lines) {
    for_mirrored_pairs(spectrum, lines, [](auto& a, auto& b, auto w) { split(a, b, w); });
    spectrum[0] = korvane::add_wrap(lines[0], lines[1]);
    spectrum[1] = korvane::sub_wrap(lines[0], lines[1]);
    spectrum[kComplexSize] = lines[kComplexSize];
    spectrum[kComplexSize + 1] = korvane::neg_wrap(lines[kComplexSize + 1]);
}
/** The other way round. */
KORVANE_INLINE void unsplit_lines(int32_t* lines, const int32_t* spectrum) {
    for_mirrored_pairs(lines, spectrum, [](auto& a, auto& b, auto w) { unsplit(a, b, w); });
    lines[0] = korvane::add_wrap(spectrum[0], spectrum[1]);
    lines[1] = korvane::sub_wrap(spectrum[0], spectrum[1]);
    lines[kComplexSize] = spectrum[kComplexSize];
    lines[kComplexSize + 1] = korvane::neg_wrap(spectrum[kComplexSize + 1]);
}

}  // namespace korvane::KORVANE_ISA

#endif
