/**
 * 16-bit samples of several signals, in and out of lanes.
 */
#ifndef KORVANE_DSP_LANES_SAMPLES_H
#define KORVANE_DSP_LANES_SAMPLES_H

#include "dsp/lanes_arithmetic.h"
#include "dsp/lanes_moves.h"
#include "dsp/lanes_types.h"

namespace korvane::KORVANE_ISA {

template <int N>
KORVANE_INLINE Lanes<N> saturated(Lanes<N> a) {
    return minimum(maximum(a, constant<Lanes<N>>(-32768)), constant<Lanes<N>>(32767));
}
/** Saturates to 16 bits. */
template <int N>
KORVANE_INLINE void store(int16_t* p, Lanes<N> a) {
    if constexpr (OneRegister<N>) {
        *reinterpret_cast<typename Lanes<N>::SamplesInMemory*>(p) =
            convert<typename Lanes<N>::Samples>(saturated(a).v);
    } else {
        store(p, a.lower);
        store(p + N / 2, a.upper);
    }
}
/** The lanes of low saturated to 16 bits in the lower halves, those of high in the upper. */
template <int N>
KORVANE_INLINE Lanes<N> saturated_pairs(Lanes<N> low, Lanes<N> high) {
    if constexpr (OneRegister<N>) {
        return bit_or(shl<16>(saturated(high)),
                      bit_and(saturated(low), Lanes<N>::broadcast(0xFFFF)));
    } else {
        return {saturated_pairs(low.lower, high.lower), saturated_pairs(low.upper, high.upper)};
    }
}

/** Four lanes each of several rows, column by column: columns[0] has lane 0 of every row and then lane 1
 * of every row, columns[1] lanes 2 and 3. rows [0..kRows-1], columns [0..1]. */
template <int kRows>
KORVANE_INLINE void transpose(const Lanes<4>* rows, Lanes<2 * kRows>* columns) {
    if constexpr (kRows == 1) {
        columns[0] = lower(rows[0]);
        columns[1] = upper(rows[0]);
    } else if constexpr (kRows == 2) {
        columns[0] = zip_lower(rows[0], rows[1]);
        columns[1] = zip_upper(rows[0], rows[1]);
    } else {
        Lanes<kRows> a[2];
        Lanes<kRows> b[2];
        transpose<kRows / 2>(rows, a);
        transpose<kRows / 2>(rows + kRows / 2, b);
        for (int i = 0; i < 2; ++i) {
            columns[i] = join(lower_halves(a[i], b[i]), upper_halves(a[i], b[i]));
        }
    }
}
/** The other way round. */
template <int kRows>
KORVANE_INLINE void transpose_back(const Lanes<2 * kRows>* columns, Lanes<4>* rows) {
    if constexpr (kRows == 1) {
        rows[0] = join(columns[0], columns[1]);
    } else if constexpr (kRows == 2) {
        rows[0] = even_lanes(columns[0], columns[1]);
        rows[1] = odd_lanes(columns[0], columns[1]);
    } else {
        Lanes<kRows> a[2];
        Lanes<kRows> b[2];
        for (int i = 0; i < 2; ++i) {
            a[i] = lower_halves(lower(columns[i]), upper(columns[i]));
            b[i] = upper_halves(lower(columns[i]), upper(columns[i]));
        }
        transpose_back<kRows / 2>(a, rows);
        transpose_back<kRows / 2>(b, rows + kRows / 2);
    }
}

/** Exchanges rows and columns of a square of lanes, in place. */
KORVANE_INLINE void transpose_square(int32_t* /*a*/) {}
template <class V>
KORVANE_INLINE void transpose_square(V* a) {
    const V low02 = zip_lower(a[0], a[2]);
    const V high02 = zip_upper(a[0], a[2]);
    const V low13 = zip_lower(a[1], a[3]);
    const V high13 = zip_upper(a[1], a[3]);
    a[0] = zip_lower(low02, low13);
    a[1] = zip_upper(low02, low13);
    a[2] = zip_lower(high02, high13);
    a[3] = zip_upper(high02, high13);
}

/** Eight samples of each of kSignals signals, in pairs: z[i] holds sample 2i of every signal in its lower
 * half, sample 2i + 1 in the upper. z [0..3]. */
template <int kSignals, class Row = Lanes<4>>
KORVANE_INLINE void load_pairs(const int16_t* const* signal, int at, Lanes<2 * kSignals>* z) {
    if constexpr (kSignals == 1) {
        for (int i = 0; i < 4; ++i) {
            z[i] = Lanes<2>::load(signal[0] + at + 2 * i);
        }
    } else {
        Row rows[size_t{kSignals}];  // in words of two samples, the earlier one in the lower bits
        Lanes<2 * kSignals> words[2];
        for (int l = 0; l < kSignals; ++l) {
            rows[l] = Row::load_words(signal[l] + at);
        }
        transpose<kSignals>(rows, words);
        for (int i = 0; i < 2; ++i) {
            const Lanes<2 * kSignals> early = shl<16>(words[i]);
            z[2 * i] = asr<16>(lower_halves(early, words[i]));
            z[2 * i + 1] = asr<16>(upper_halves(early, words[i]));
        }
    }
}
/** The other way round, saturated to 16 bits. */
template <int kSignals>
KORVANE_INLINE void store_pairs(const Lanes<2 * kSignals>* z, int16_t* const* signal, int at) {
    if constexpr (kSignals == 1) {
        for (int i = 0; i < 4; ++i) {
            store(signal[0] + at + 2 * i, z[i]);
        }
    } else {
        Lanes<2 * kSignals> words[2];
        Lanes<4> rows[size_t{kSignals}];
        for (int i = 0; i < 2; ++i) {
            words[i] = saturated_pairs(lower_halves(z[2 * i], z[2 * i + 1]),
                                       upper_halves(z[2 * i], z[2 * i + 1]));
        }
        transpose_back<kSignals>(words, rows);
        for (int l = 0; l < kSignals; ++l) {
            store_words(signal[l] + at, rows[l]);
        }
    }
}

}  // namespace korvane::KORVANE_ISA

#endif
