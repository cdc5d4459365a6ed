/**
 * Operations that move lanes, within a vector and between two of them, to memory and back.
 */
#ifndef KORVANE_DSP_LANES_MOVES_H
#define KORVANE_DSP_LANES_MOVES_H

#include "dsp/lanes_types.h"

namespace korvane::KORVANE_ISA {

/** Lane i of the result is lane index(i) of a and, after it, b. */
template <int kResult, class Index, int N>
KORVANE_INLINE Lanes<kResult> shuffle(Lanes<N> a, Lanes<N> b, Index /*index*/) {
    return [&]<int... kI>(std::integer_sequence<int, kI...>) __attribute__((always_inline)) {
        return Lanes<kResult>{__builtin_shufflevector(a.v, b.v, Index{}(kI)...)};
    }
    (std::make_integer_sequence<int, kResult>{});
}

template <int N>
KORVANE_INLINE void store(int32_t* p, Lanes<N> a) {
    if constexpr (OneRegister<N>) {
        *reinterpret_cast<typename Lanes<N>::InMemory*>(p) = a.v;
    } else {
        store(p, a.lower);
        store(p + N / 2, a.upper);
    }
}
/** What load_words reads. */
template <int N>
requires(OneRegister<N>) KORVANE_INLINE void store_words(int16_t* p, Lanes<N> a) {
    *reinterpret_cast<typename Lanes<N>::InMemory*>(p) = a.v;
}
template <int N>
requires(OneRegister<N>) && (N == 4) KORVANE_INLINE
    void store_two(int32_t* a, int32_t* b, Lanes<N> v) {
    const auto words = reinterpret_cast<Vectors<4>::Pairs>(v.v);
    *reinterpret_cast<PairInMemory*>(a) = words[0];
    *reinterpret_cast<PairInMemory*>(b) = words[1];
}
/** The lower half of the lanes. */
template <int N>
KORVANE_INLINE I32<N / 2> lower(Lanes<N> a) {
    if constexpr (!OneRegister<N>) {
        return a.lower;
    } else if constexpr (N == 2) {
        return a.v[0];
    } else {
        return shuffle<N / 2>(a, a, [](int i) { return i; });
    }
}
template <int N>
KORVANE_INLINE I32<N / 2> upper(Lanes<N> a) {
    if constexpr (!OneRegister<N>) {
        return a.upper;
    } else if constexpr (N == 2) {
        return a.v[1];
    } else {
        return shuffle<N / 2>(a, a, [](int i) { return N / 2 + i; });
    }
}
template <class Half>
KORVANE_INLINE auto join(Half a, Half b) {
    constexpr int kHalf = kLanesOf<Half>;
    if constexpr (OneRegister<2 * kHalf> && kHalf == 1) {
        return Lanes<2 * kHalf>{typename Lanes<2 * kHalf>::Register{a, b}};
    } else if constexpr (OneRegister<2 * kHalf>) {
        return shuffle<2 * kHalf>(a, b, [](int i) { return i; });
    } else {
        return Lanes<2 * kHalf>{a, b};
    }
}
// Lane i of the result is lane `index` of a and, after it, b; of more than one register the result is two
// halves.
#define KORVANE_SHUFFLE(name, index, lower_half, upper_half)      \
    template <int N>                                              \
    KORVANE_INLINE Lanes<N> name(Lanes<N> a, Lanes<N> b) {        \
        if constexpr (OneRegister<N>) {                           \
            return shuffle<N>(a, b, [](int i) { return index; }); \
        } else {                                                  \
            return {lower_half, upper_half};                      \
        }                                                         \
    }
/** The lower half of a, then that of b; the upper halves; the lower half of a, the upper half of b. */
KORVANE_SHUFFLE(lower_halves, i < N / 2 ? i : N / 2 + i, a.lower, b.lower)
KORVANE_SHUFFLE(upper_halves, i < N / 2 ? N / 2 + i : N + i, a.upper, b.upper)
KORVANE_SHUFFLE(blend_halves, i < N / 2 ? i : N + i, a.lower, b.upper)
/** Lanes 0, 2, 4, ... of a and b; lanes 1, 3, 5, ... */
KORVANE_SHUFFLE(even_lanes, 2 * i, even_lanes(a.lower, a.upper), even_lanes(b.lower, b.upper))
KORVANE_SHUFFLE(odd_lanes, 2 * i + 1, odd_lanes(a.lower, a.upper), odd_lanes(b.lower, b.upper))
/** The lower halves of a and b, lane by lane in turns: a[0], b[0], a[1], ...; the upper halves. */
KORVANE_SHUFFLE(zip_lower, i / 2 + N * (i % 2), zip_lower(a.lower, b.lower),
                zip_upper(a.lower, b.lower))
KORVANE_SHUFFLE(zip_upper, N / 2 + i / 2 + N * (i % 2), zip_lower(a.upper, b.upper),
                zip_upper(a.upper, b.upper))
#undef KORVANE_SHUFFLE

template <int N>
KORVANE_INLINE Lanes<N> swap_halves(Lanes<N> a) {
    if constexpr (OneRegister<N>) {
        return shuffle<N>(a, a, [](int i) { return i ^ N / 2; });
    } else {
        return {a.upper, a.lower};
    }
}
/** In each run of kRun lanes every lane moves to the next place, the last one to the first. */
template <int kRun, int N>
KORVANE_INLINE Lanes<N> rotate(Lanes<N> a) {
    if constexpr (kRun == 1) {
        return a;
    } else if constexpr (OneRegister<N>) {
        return shuffle<N>(a, a, [](int i) { return i % kRun == 0 ? i + kRun - 1 : i - 1; });
    } else {
        return {rotate<kRun>(a.lower), rotate<kRun>(a.upper)};
    }
}
/** a with the first lane of each run of kRun lanes from b. */
template <int kRun, int N>
KORVANE_INLINE Lanes<N> insert_first(Lanes<N> a, Lanes<N> b) {
    if constexpr (kRun == 1) {
        return b;
    } else if constexpr (OneRegister<N>) {
        return shuffle<N>(a, b, [](int i) { return i % kRun == 0 ? N + i : i; });
    } else {
        return {insert_first<kRun>(a.lower, b.lower), insert_first<kRun>(a.upper, b.upper)};
    }
}
/** a in the lanes of the lower half, b in those of the upper. */
template <class V>
KORVANE_INLINE V broadcast_halves(int32_t a, int32_t b) {
    constexpr int kHalf = V::kLanes / 2;
    return join(constant<I32<kHalf>>(a), constant<I32<kHalf>>(b));
}
/** A word in memory, which may be two samples. */
KORVANE_INLINE int32_t load_word(const void* p) {
    int32_t word = 0;
    std::memcpy(&word, p, sizeof word);
    return word;
}
/** As many words of two samples each as V has lanes. */
template <class V>
KORVANE_INLINE V load_words(const int16_t* p) {
    if constexpr (kLanesOf<V> == 1) {
        return load_word(p);
    } else {
        return V::load_words(p);
    }
}
/** A word in the lanes of the lower half, and in those of the upper the one kStride behind it, 1 or 2. */
template <class V, int kStride>
KORVANE_INLINE V broadcast_words(const void* p) {
    const auto* const words = static_cast<const int32_t*>(p);
    if constexpr (OneRegister<V::kLanes> && V::kLanes == 4) {
        const V both = kStride == 1 ? V::load_two(words, words) : V::load(words);
        return shuffle<4>(both, both, [](int i) { return i / 2 * kStride; });
    } else {
        return broadcast_halves<V>(load_word(words), load_word(words + kStride));
    }
}
/** The last lane first. */
template <int N>
requires(OneRegister<N>) KORVANE_INLINE Lanes<N> reverse(Lanes<N> a) {
    return shuffle<N>(a, a, [](int i) { return N - 1 - i; });
}
/** One lane of a vector that lies in memory anyway. */
template <int N>
KORVANE_INLINE int32_t lane_in_memory(const Lanes<N>& a, int lane) {
    int32_t value = 0;
    std::memcpy(&value, reinterpret_cast<const int32_t*>(&a) + lane, sizeof value);
    return value;
}
/** a[i] in the first lane of run i of kRun lanes, of kRuns runs; zero or anything in the others. */
template <int kRun, int kRuns>
KORVANE_INLINE I32<kRun * kRuns> first_lanes(const int32_t* a) {
    using V = I32<kRun * kRuns>;
    if constexpr (kRun == 1) {
        return load_lanes<V>(a);
    } else if constexpr (kRuns == 1) {
        return {typename V::Register{a[0]}};
    } else if constexpr (kRun == 2 && kRuns == 2) {
        return {typename V::Register{a[0], 0, a[1], 0}};
    } else {
        return join(first_lanes<kRun, kRuns / 2>(a), first_lanes<kRun, kRuns / 2>(a + kRuns / 2));
    }
}

}  // namespace korvane::KORVANE_ISA

#endif
