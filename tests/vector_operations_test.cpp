// The vector operations against the scalar ones of the same name, on every corner of their range.
// Built once for each instruction set, like the code that uses them.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "dsp/filter_bank_coefficients.h"
#include "dsp/instruction_set.h"
#include "dsp/simd.h"
#include "nrss/gain/gain_engine.h"
#include "signals.h"

namespace korvane {

namespace {

using KORVANE_ISA::Braid;
using KORVANE_ISA::Quad;
using KORVANE_ISA::Wide;

/** Corners of the 32-bit range, and random values of every magnitude. A multiple of eight. */
std::vector<int32_t> corner_values() {
    std::vector<int32_t> values;
    for (int bit = 0; bit < 32; ++bit) {
        const int32_t power = shl_wrap(1, bit);
        for (const int32_t v : {sub_wrap(power, 1), power, add_wrap(power, 1)}) {
            values.push_back(v);
            values.push_back(neg_wrap(v));
        }
    }
    uint32_t state = 20261124;
    while (values.size() < 4096) {
        const uint32_t shift = draw(&state) % 32;
        values.push_back(static_cast<int32_t>(draw(&state)) >> shift);
    }
    return values;
}

template <class V, class Vector, class Scalar>
void expect_same(const char* name, const std::vector<int32_t>& a, const std::vector<int32_t>& b,
                 Vector vector, Scalar scalar) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i + V::kLanes <= a.size(); i += V::kLanes) {
        std::array<int32_t, V::kLanes> result{};
        store(result.data(), vector(V::load(&a[i]), V::load(&b[i])));
        for (size_t l = 0; l < V::kLanes; ++l) {
            ASSERT_EQ(result[l], scalar(a[i + l], b[i + l]))
                << name << " of " << a[i + l] << " and " << b[i + l] << ", " << V::kLanes
                << " lanes";
        }
    }
}

/** The operations with both operands from their whole ranges. */
template <class V>
void check_operations() {
    const std::vector<int32_t> a = corner_values();
    std::vector<int32_t> b(a.rbegin(), a.rend());
    const auto limited = [&](auto limit) {
        std::vector<int32_t> v(b.size());
        std::transform(b.begin(), b.end(), v.begin(), limit);
        return v;
    };
    const auto any16 =
        limited([](int32_t x) { return static_cast<int32_t>(static_cast<int16_t>(x)); });
    const auto positive16 = limited([](int32_t x) { return x & 0x7FFF; });
    const auto negative16 = limited([](int32_t x) { return (x & 0x7FFF) - 32768; });
    const auto positive = limited([](int32_t x) { return x & INT32_MAX; });
    const auto count = limited([](int32_t x) { return (x & INT32_MAX) % 33; });
    const auto short_count = limited([](int32_t x) { return x & 31; });

#define KORVANE_SAME(operation, second)                                  \
    expect_same<V>(                                                      \
        #operation, a, second, [](V x, V y) { return operation(x, y); }, \
        [](int32_t x, int32_t y) { return operation(x, y); })
#define KORVANE_SAME_ONE(operation)                            \
    expect_same<V>(                                            \
        #operation, a, b, [](V x, V) { return operation(x); }, \
        [](int32_t x, int32_t) { return static_cast<int32_t>(operation(x)); })
    KORVANE_SAME(add_wrap, b);
    KORVANE_SAME(sub_wrap, b);
    KORVANE_SAME(minimum, b);
    KORVANE_SAME(maximum, b);
    KORVANE_SAME(greater, b);
    KORVANE_SAME(mul_half_q15, any16);
    KORVANE_SAME(mul_half_positive, positive16);
    KORVANE_SAME(mul_half_negative, negative16);
    KORVANE_SAME(mul_half_upper, b);
    KORVANE_SAME(mul_half_upper_positive, positive);
    KORVANE_SAME(shl_each, count);
    KORVANE_SAME(asr_each, short_count);
    KORVANE_SAME_ONE(leading_zeros);
    KORVANE_SAME_ONE(neg_wrap);
    KORVANE_SAME_ONE(mul_half_q15<-32768>);
    KORVANE_SAME_ONE(mul_half_q15<-1>);
    KORVANE_SAME_ONE(mul_half_q15<18841>);
    KORVANE_SAME_ONE(mul_half_q15<32767>);
    KORVANE_SAME_ONE(lsr<7>);
    KORVANE_SAME_ONE(asr<16>);
#undef KORVANE_SAME_ONE
#undef KORVANE_SAME
    expect_same<V>(
        "a sum with a product", a, b,
        [](V x, V y) { return V(add_half_both<28378>(x, y).positive); },
        [](int32_t x, int32_t y) { return add_wrap(x, mul_half_q15<28378>(y)); });
    expect_same<V>(
        "a sum with the opposite product", a, b,
        [](V x, V y) { return V(add_half_both<28378>(x, y).negative); },
        [](int32_t x, int32_t y) { return add_wrap(x, mul_half_q15<-28378>(y)); });
    if constexpr (V::kLanes == Quad::kLanes) {
        expect_same<V>(
            "a sum with a product with a negative factor", a, negative16,
            [](V x, V y) { return add_half_negative(x, x, y); },
            [](int32_t x, int32_t y) { return add_wrap(x, mul_half_negative(x, y)); });
    }
    expect_same<V>(
        "mul_low", a, b, [](V x, V y) { return mul_low(x, y); },
        [](int32_t x, int32_t y) {
            return static_cast<int32_t>(static_cast<uint32_t>(x) * static_cast<uint32_t>(y));
        });
    expect_same<V>(
        "reverse twice", a, b, [](V x, V) { return reverse(reverse(x)); },
        [](int32_t x, int32_t) { return x; });
}

/** The gain engine's arithmetic, in its two forms. */
void check_gain_arithmetic() {
    const std::vector<int32_t> a = corner_values();
    const std::vector<int32_t> b(a.rbegin(), a.rend());
    const auto of_a = [&](auto limit) {
        std::vector<int32_t> v(a.size());
        std::transform(a.begin(), a.end(), v.begin(), limit);
        return v;
    };
    const auto positive_a = of_a([](int32_t x) { return x & INT32_MAX; });
    const std::vector<int32_t> positive_b(positive_a.rbegin(), positive_a.rend());
    const auto below_one = of_a([](int32_t x) { return std::min(x, kOneQ30); });
    const auto positive_below_one = of_a([](int32_t x) { return x & kOneQ30; });
    const auto ratio = [](int32_t x, int32_t y) { return ratio_q30<int32_t, true>(x, y); };
    const auto root = [](int32_t x, int32_t) { return sqrt_q15<int32_t, true>(x); };
    expect_same<Braid>(
        "ratio", a, b, [](Braid x, Braid y) { return ratio_q30<Braid, true>(x, y); }, ratio);
    expect_same<Braid>(
        "root", below_one, b, [](Braid x, Braid) { return sqrt_q15<Braid, true>(x); }, root);
    if constexpr (kShortPositiveForms<Braid>) {
        expect_same<Braid>(
            "ratio of positive", positive_a, positive_b,
            [](auto x, auto y) { return ratio_q30<decltype(x), false>(x, y); }, ratio);
        expect_same<Braid>(
            "root of positive", positive_below_one, b,
            [](auto x, auto) { return sqrt_q15<decltype(x), false>(x); }, root);
    }
    for (const auto& coef : kOsubCurves) {
        expect_same<Braid>(
            "curve", below_one, b, [&](Braid x, Braid) { return OsubCurve<Braid>(coef).target(x); },
            [&](int32_t x, int32_t) { return OsubCurve<int32_t>(coef).target(x); });
    }
}

/** Eight samples of several signals, no two alike, and room for what comes back. */
template <int kSignals>
struct Signals {
    int16_t samples[size_t{kSignals}][8];
    int16_t back[size_t{kSignals}][8] = {};
    const int16_t* in[size_t{kSignals}];
    int16_t* out[size_t{kSignals}];

    Signals() {
        for (int l = 0; l < kSignals; ++l) {
            for (int i = 0; i < 8; ++i) {
                samples[l][i] = static_cast<int16_t>(l * 4099 - i * 8191);
            }
            in[l] = samples[l];
            out[l] = back[l];
        }
    }
    void expect_back_doubled() const {
        for (int l = 0; l < kSignals; ++l) {
            for (int i = 0; i < 8; ++i) {
                EXPECT_EQ(back[l][i], saturate16(2 * samples[l][i])) << l << ", " << i;
            }
        }
    }
};

/** Samples go into lanes and come back saturated, and the hop before stands one lane on. */
template <class V, int kCycle>
void check_lanes() {
    Signals<V::kLanes> signals;
    const auto& samples = signals.samples;
    V x[8];
    load_samples(signals.in, x);
    for (int i = 0; i < 8; ++i) {
        int32_t lanes[V::kLanes];
        store(lanes, x[i]);
        int32_t moved[V::kLanes];
        const V kept = V::broadcast(-7);
        store(moved, first_of_cycle<kCycle>(kept, cycle<kCycle>(x[i])));
        for (int l = 0; l < V::kLanes; ++l) {
            EXPECT_EQ(lanes[l], samples[l][i]);
            EXPECT_EQ(moved[l], l % kCycle == 0 ? -7 : samples[l - 1][i]);
        }
        x[i] = add_wrap(x[i], x[i]);
    }
    store_samples(x, signals.out);
    signals.expect_back_doubled();
}

/** The same of samples that go in pairs, the second of each into the upper half, and what else is
 * done with halves. */
template <class V>
void check_halves() {
    constexpr int kHalf = V::kLanes / 2;
    Signals<kHalf> signals;
    V x[4];
    load_sample_pairs(signals.in, x);
    const auto expect_halves = [](V v, const auto& lower, const auto& upper) {
        int32_t lanes[V::kLanes];
        store(lanes, v);
        for (int l = 0; l < kHalf; ++l) {
            EXPECT_EQ(lanes[l], lower(l)) << l;
            EXPECT_EQ(lanes[kHalf + l], upper(l)) << l;
        }
    };
    for (int i = 0; i < 4; ++i) {
        const auto even = [&](int l) { return signals.samples[l][2 * i]; };
        const auto odd = [&](int l) { return signals.samples[l][2 * i + 1]; };
        const auto first = [](int) { return 7; };
        const auto second = [](int) { return -9; };
        const V both = V::broadcast_halves(7, -9);
        expect_halves(both, first, second);
        expect_halves(x[i], even, odd);
        expect_halves(swap_halves(x[i]), odd, even);
        expect_halves(lower_halves(x[i], both), even, first);
        expect_halves(upper_halves(x[i], both), odd, second);
        expect_halves(blend_halves(x[i], both), even, second);
    }
    for (V& v : x) {
        v = add_wrap(v, v);
    }
    store_sample_pairs(x, signals.out);
    signals.expect_back_doubled();
}

#define KORVANE_TEST(isa) KORVANE_TEST_OF(isa)
#define KORVANE_TEST_OF(isa) TEST(VectorOperations, AgreeWithTheScalarOnes_##isa)

KORVANE_TEST(KORVANE_ISA) {
    force_instruction_set(InstructionSet::kUnknown);
    if (Wide::kLanes == 8 && instruction_set() != InstructionSet::kAvx2) {
        GTEST_SKIP() << "this machine lacks the instruction set";
    }
    check_operations<Quad>();
    check_operations<Wide>();
    check_gain_arithmetic();
    check_lanes<Quad, 4>();
    check_lanes<Quad, 2>();
    check_lanes<Wide, 4>();
    check_lanes<Wide, 2>();
    check_halves<Quad>();
    check_halves<Wide>();
}

}  // namespace

}  // namespace korvane
