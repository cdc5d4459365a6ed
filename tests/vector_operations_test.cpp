// The operations on lanes against those of the same name on a number, on every corner of their range.
// Built once for each instruction set, like the code that uses them.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "dsp/instruction_set.h"
#include "dsp/lanes.h"
#include "nrss/gain/gain_arithmetic.h"
#include "signals.h"

namespace korvane::KORVANE_ISA {

namespace {

/** Corners of the 32-bit range, and random values of every magnitude; 4096 in all. */
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

template <class Limit>
std::vector<int32_t> limited(std::vector<int32_t> values, Limit limit) {
    std::transform(values.begin(), values.end(), values.begin(), limit);
    return values;
}

/** f on vectors against f on numbers. */
template <class V, class F>
void expect_same(const char* name, const std::vector<int32_t>& a, const std::vector<int32_t>& b,
                 F f) {
    for (size_t i = 0; i < a.size(); i += V::kLanes) {
        std::array<int32_t, V::kLanes> result{};
        store(result.data(), f(V::load(&a[i]), V::load(&b[i])));
        for (size_t l = 0; l < V::kLanes; ++l) {
            ASSERT_EQ(result[l], static_cast<int32_t>(f(a[i + l], b[i + l])))
                << name << " of " << a[i + l] << " and " << b[i + l] << ", " << V::kLanes
                << " lanes";
        }
    }
}

/** The arithmetic with both operands from their whole ranges. */
template <class V>
void check_arithmetic() {
    const std::vector<int32_t> a = corner_values();
    const std::vector<int32_t> b(a.rbegin(), a.rend());
    const auto any16 = limited(b, [](int32_t x) { return static_cast<int16_t>(x); });
    const auto positive16 = limited(b, [](int32_t x) { return x & 0x7FFF; });
    const auto negative16 = limited(b, [](int32_t x) { return (x & 0x7FFF) - 32768; });
    const auto positive = limited(b, [](int32_t x) { return x & INT32_MAX; });
    const auto above_0 = limited(b, [](int32_t x) { return std::max(x & INT32_MAX, 1); });
    const auto count = limited(b, [](int32_t x) { return (x & INT32_MAX) % 33; });
    const auto short_count = limited(b, [](int32_t x) { return x & 31; });
    const auto sample = limited(a, [](int32_t x) { return static_cast<int16_t>(x); });

#define KORVANE_SAME(operation, first, second) \
    expect_same<V>(#operation, first, second, [](auto x, auto y) { return operation(x, y); })
#define KORVANE_SAME_ONE(operation) \
    expect_same<V>(#operation, a, b, [](auto x, auto /*y*/) { return operation(x); })
    KORVANE_SAME(add_wrap, a, b);
    KORVANE_SAME(sub_wrap, a, b);
    KORVANE_SAME(mul_wrap, a, b);
    KORVANE_SAME(minimum, a, b);
    KORVANE_SAME(maximum, a, b);
    KORVANE_SAME(greater, a, b);
    KORVANE_SAME(bit_and, a, b);
    KORVANE_SAME(bit_or, a, b);
    KORVANE_SAME(mul_samples, sample, positive16);
    KORVANE_SAME(mul_narrow, sample, any16);
    KORVANE_SAME(mul_add_pairs, a, b);
    KORVANE_SAME(mul_q15, a, any16);
    KORVANE_SAME(mul_half_q15, a, any16);
    KORVANE_SAME(mul_half_positive, a, positive16);
    KORVANE_SAME(mul_half_negative, a, negative16);
    KORVANE_SAME(mul_half_upper, a, b);
    KORVANE_SAME(mul_half_upper_positive, a, positive);
    KORVANE_SAME(shl_each, a, count);
    KORVANE_SAME(asr_each, a, short_count);
    KORVANE_SAME_ONE(leading_zeros);
    expect_same<V>("straight_log2", above_0, b,
                   [](auto x, auto /*y*/) { return straight_log2(x); });
    KORVANE_SAME_ONE(neg_wrap);
    KORVANE_SAME_ONE(mul_half_by<-32768>);
    KORVANE_SAME_ONE(mul_half_by<-1>);
    KORVANE_SAME_ONE(mul_half_by<18841>);
    KORVANE_SAME_ONE(mul_half_by<32767>);
    KORVANE_SAME_ONE(lsr<7>);
    KORVANE_SAME_ONE(asr<16>);
#undef KORVANE_SAME_ONE
#undef KORVANE_SAME
    expect_same<V>("a sum with a product", a, negative16,
                   [](auto x, auto y) { return add_half_negative(x, x, y); });
    expect_same<V>("a product", a, b,
                   [](auto x, auto /*y*/) { return mul_half_both<28378>(x).positive; });
    expect_same<V>("the opposite product", a, b,
                   [](auto x, auto /*y*/) { return mul_half_both<28378>(x).negative; });
}

/** The gain engine's arithmetic, in its two forms. */
template <class V>
void check_gain_arithmetic() {
    const std::vector<int32_t> a = corner_values();
    const std::vector<int32_t> b(a.rbegin(), a.rend());
    const auto positive_a = limited(a, [](int32_t x) { return x & INT32_MAX; });
    const std::vector<int32_t> positive_b(positive_a.rbegin(), positive_a.rend());
    const auto below_one = limited(a, [](int32_t x) { return std::min(x, kOneQ30); });
    const auto positive_below_one = limited(a, [](int32_t x) { return x & kOneQ30; });
    const auto ratio = [](auto x, auto y) { return ratio_q30<decltype(x), true>(x, y); };
    const auto root = [](auto x, auto /*y*/) { return sqrt_q15<decltype(x), true>(x); };
    expect_same<V>("ratio", a, b, ratio);
    expect_same<V>("root", below_one, b, root);
    if constexpr (kHasPositiveForms<V>) {
        expect_same<V>("ratio of positive", positive_a, positive_b, [](auto x, auto y) {
            return ratio_q30<decltype(x), !kHasPositiveForms<decltype(x)>>(x, y);
        });
        expect_same<V>("root of positive", positive_below_one, b, [](auto x, auto /*y*/) {
            return sqrt_q15<decltype(x), !kHasPositiveForms<decltype(x)>>(x);
        });
    }
    for (const auto& coef : kOsubCurves) {
        expect_same<V>("curve", below_one, b,
                       [&](auto x, auto /*y*/) { return OsubCurve<decltype(x)>(coef).target(x); });
    }
}

template <int N>
std::array<int32_t, size_t{N}> lanes_of(Lanes<N> a) {
    std::array<int32_t, size_t{N}> lanes{};
    store(lanes.data(), a);
    return lanes;
}

/** Lane i is index(i) of 100, 101, ... and then 200, 201, ... */
template <int N, class Index>
void expect_moved(const char* name, Lanes<N> got, Index index) {
    const auto lanes = lanes_of(got);
    for (int i = 0; i < N; ++i) {
        const int from = index(i);
        EXPECT_EQ(lanes[static_cast<size_t>(i)], from < N ? 100 + from : 200 + from - N)
            << name << ", lane " << i << " of " << N;
    }
}

template <int N>
void check_moves() {
    std::array<int32_t, 2 * size_t{N}> values{};
    for (int i = 0; i < N; ++i) {
        values[static_cast<size_t>(i)] = 100 + i;
        values[size_t{N} + static_cast<size_t>(i)] = 200 + i;
    }
    const auto a = Lanes<N>::load(values.data());
    const auto b = Lanes<N>::load(values.data() + N);
    constexpr int kHalf = N / 2;
    const auto zipped = [](int i) { return i / 2 + N * (i % 2); };
    expect_moved("lower_halves", lower_halves(a, b),
                 [](int i) { return i < kHalf ? i : N + i - kHalf; });
    expect_moved("upper_halves", upper_halves(a, b),
                 [](int i) { return i < kHalf ? kHalf + i : N + i; });
    expect_moved("blend_halves", blend_halves(a, b), [](int i) { return i < kHalf ? i : N + i; });
    expect_moved("swap_halves", swap_halves(a), [](int i) { return (i + kHalf) % N; });
    expect_moved("join", join(upper(a), lower(b)), [](int i) { return kHalf + i; });
    expect_moved("even_lanes", even_lanes(a, b), [](int i) { return 2 * i; });
    expect_moved("odd_lanes", odd_lanes(a, b), [](int i) { return 2 * i + 1; });
    expect_moved("zip_lower", zip_lower(a, b), zipped);
    expect_moved("zip_upper", zip_upper(a, b), [&](int i) { return kHalf + zipped(i); });
    expect_moved("rotate", rotate<2>(a), [](int i) { return i ^ 1; });
    expect_moved("insert_first", insert_first<2>(a, b),
                 [](int i) { return i % 2 == 0 ? N + i : i; });
    if constexpr (N >= 8) {
        expect_moved("rotate", rotate<4>(a), [](int i) { return i % 4 == 0 ? i + 3 : i - 1; });
    }
    const auto negated = lanes_of(negate_lower(a));
    EXPECT_EQ(negated[0], -100);
    EXPECT_EQ(negated[kHalf], 100 + kHalf);
    EXPECT_EQ(lanes_of(negate_upper(a))[kHalf], -100 - kHalf);
    EXPECT_EQ(lanes_of(negate_upper(a))[0], 100);
    EXPECT_EQ(sum_lanes(a), N * 100 + N * (N - 1) / 2);
    EXPECT_TRUE(!any_negative(a) && any_negative(negate_lower(a)) && any_negative(negate_upper(a)));
}

/** Samples go into lanes in pairs and come back doubled and saturated. */
template <int kSignals>
void check_pairs() {
    int16_t samples[size_t{kSignals}][10];
    int16_t back[size_t{kSignals}][10] = {};
    const int16_t* in[size_t{kSignals}];
    int16_t* out[size_t{kSignals}];
    for (int l = 0; l < kSignals; ++l) {
        for (int i = 0; i < 10; ++i) {
            samples[l][i] = static_cast<int16_t>(l * 4099 - i * 8191);
        }
        in[l] = samples[l];
        out[l] = back[l];
    }
    Lanes<2 * kSignals> z[4];
    load_pairs<kSignals>(in, 1, z);  // at an odd place
    for (auto& value : z) {
        const auto lanes = lanes_of(value);
        const auto i = static_cast<int>(&value - z);
        for (int l = 0; l < 2 * kSignals; ++l) {
            EXPECT_EQ(lanes[static_cast<size_t>(l)],
                      samples[l % kSignals][1 + 2 * i + l / kSignals]);
        }
        value = add_wrap(value, value);
    }
    store_pairs<kSignals>(z, out, 1);
    for (int l = 0; l < kSignals; ++l) {
        for (int i = 0; i < 10; ++i) {
            const bool inside = i >= 1 && i <= 8;
            EXPECT_EQ(back[l][i], inside ? saturate16(2 * samples[l][i]) : 0) << l << ", " << i;
        }
    }
}

bool set_runs_here(const char* name) {
    for (const InstructionSet& set : instruction_sets()) {
        if (std::strcmp(set.name, name) == 0) {
            return set.runs_here();
        }
    }
    return false;
}

#define KORVANE_NAME(text) KORVANE_NAME_OF(text)
#define KORVANE_NAME_OF(text) #text
#define KORVANE_TEST(isa) KORVANE_TEST_OF(isa)
#define KORVANE_TEST_OF(isa) TEST(VectorOperations, AgreeWithOneLane_##isa)

KORVANE_TEST(KORVANE_ISA) {
    if (!set_runs_here(KORVANE_NAME(KORVANE_ISA))) {
        GTEST_SKIP() << "this machine lacks the instruction set";
    }
    check_arithmetic<Lanes<4>>();
    check_arithmetic<Lanes<8>>();
    check_arithmetic<Lanes<16>>();
    check_gain_arithmetic<Lanes<4>>();
    check_gain_arithmetic<Lanes<16>>();
    check_moves<4>();
    check_moves<8>();
    check_moves<16>();
    check_pairs<2>();
    check_pairs<4>();
    check_pairs<8>();
}

}  // namespace

}  // namespace korvane::KORVANE_ISA
