// The transforms against the definition of the DFT in double precision.
//
// How far may they be off? Every error enters as a vector at some stage, and the stages behind it
// are DFTs of 4, 9 or 3 points, which stretch a vector's norm by the square root of their size.
// Counting the truncating products (each loses less than 1, each halving less than 1/2), as root
// mean square over the 144 complex results:
//   16-point twiddles  72 of modulus < sqrt(8), 36 points behind them   sqrt(72*8*36/144)  = 12.0
//   first radix 3      96 of modulus < sqrt(2), 3 points behind them    sqrt(96*2*3/144)   =  2.0
//   9-point twiddles   64 of modulus < sqrt(8), 3 points behind them    sqrt(64*8*3/144)   =  3.3
//   second radix 3     96 of modulus < sqrt(2)                          sqrt(96*2/144)     =  1.2
//   split              142 of modulus < sqrt(12.5)                      sqrt(142*12.5/144) =  3.5
// Forward: 22.0 in all. Inverse: the split comes first, with all 144 points behind it (42.1), so
// 60.6 per complex result and 60.6 / sqrt(2) = 42.9 per real one. The rounding of the constants
// adds a share of the result: 0.71 units of 2^-15 for each of the three twiddles on the way, 0.58
// for each of the two radix-3 passes, 3.3 in all.
#include "dsp/fft288.h"

#include <gtest/gtest.h>

#include <array>
#include <complex>

#include "numeric_models.h"

namespace korvane {
namespace {

using test::Random;
using test::Reals;
using Frame = std::array<int32_t, kFrameSize>;

// exp(2 pi i k n / 288)
std::complex<double> turn(size_t k, size_t n) {
    static const auto table = [] {
        std::array<std::complex<double>, kFrameSize> turns;
        for (size_t i = 0; i < kFrameSize; ++i) {
            turns[i] = std::polar(1.0, 2 * std::numbers::pi * static_cast<double>(i) / kFrameSize);
        }
        return turns;
    }();
    return table[k * n % kFrameSize];
}

Reals dft(const Frame& x) {
    Reals packed(kFrameSize);
    for (size_t n = 0; n < kFrameSize; ++n) {
        packed[0] += x[n];
        packed[1] += n % 2 == 0 ? x[n] : -static_cast<double>(x[n]);
        for (size_t k = 1; k < kComplexSize; ++k) {
            packed[2 * k] += x[n] * turn(k, n).real();
            packed[2 * k + 1] -= x[n] * turn(k, n).imag();
        }
    }
    return packed;
}

// DC and Nyquist enter at full weight, the other bins at half that of an unnormalised inverse DFT.
Reals inverse_dft(const Frame& packed) {
    Reals x(kFrameSize);
    for (size_t n = 0; n < kFrameSize; ++n) {
        x[n] = packed[0] + (n % 2 == 0 ? packed[1] : -static_cast<double>(packed[1]));
        for (size_t k = 1; k < kComplexSize; ++k) {
            x[n] += packed[2 * k] * turn(k, n).real() - packed[2 * k + 1] * turn(k, n).imag();
        }
    }
    return x;
}

// Over the 144 complex results. DC and Nyquist, each the sum or difference of one result's parts,
// count half.
double packed_rms(const Reals& packed) {
    Reals weighted = packed;
    weighted[0] /= std::sqrt(2);
    weighted[1] /= std::sqrt(2);
    return std::sqrt(2) * test::rms(weighted);
}

const struct {
    void (*run)(int32_t*, const int32_t*);
    Reals (*exact)(const Frame&);
    double (*size)(const Reals&);
    double truncation;
    int32_t highest;  // level that no sum wraps at
} kTransforms[] = {
    {real_fft288, dft, packed_rms, 22.0, 1 << 22},
    {real_ifft288, inverse_dft, [](const Reals& x) { return test::rms(x); }, 42.9, 1 << 20},
};

Frame random_frame(Random& random, int32_t lo, int32_t hi) {
    Frame x;
    for (int32_t& v : x) {
        v = random.between(lo, hi);
    }
    return x;
}

class Transforms : public ::testing::Test {
  protected:
    void SetUp() override { fft288_init(); }
};

TEST_F(Transforms, FollowTheirDefinitionAtEveryLevel) {
    Random random(1);
    for (const auto& transform : kTransforms) {
        const auto check = [&](const Frame& in) {
            const Reals expected = transform.exact(in);
            Frame out;
            transform.run(out.data(), in.data());
            Reals error(kFrameSize);
            for (size_t i = 0; i < kFrameSize; ++i) {
                error[i] = out[i] - expected[i];
            }
            ASSERT_LE(transform.size(error),
                      transform.truncation + 3.3 / 32768 * transform.size(expected));
        };
        for (const int32_t level : {30, 1000, 32767, transform.highest}) {
            check(random_frame(random, -level, level));
        }
        for (size_t at = 0; at < kFrameSize; ++at) {  // every path on its own
            Frame impulse{};
            impulse[at] = -transform.highest;
            check(impulse);
        }
        for (const int32_t a : {0, 1, -1, 32767, -32768, 1 << 22, -(1 << 22)}) {  // exact
            Frame constant, alternating, out;
            for (size_t i = 0; i < kFrameSize; ++i) {
                constant[i] = a;
                alternating[i] = i % 2 == 0 ? a : -a;
            }
            const bool forward = transform.run == real_fft288;
            transform.run(out.data(), (forward ? constant : Frame{a}).data());
            EXPECT_EQ(out, forward ? Frame{kFrameSize * a} : constant);
            transform.run(out.data(), (forward ? alternating : Frame{0, a}).data());
            EXPECT_EQ(out, (forward ? Frame{0, kFrameSize * a} : alternating));
        }
    }
}

TEST(TransformConstants, AreTheRoundedTwiddles) {
    const auto q15 = [](double value) { return std::lround(32768 * value); };
    for (size_t k = 0; k < 144; ++k) {
        const double phi = 2 * std::numbers::pi * static_cast<double>(k) / 576;
        EXPECT_EQ(twd576[k][0], std::min(q15(std::cos(phi)), 32767L)) << k;
        EXPECT_EQ(twd576[k][1], -q15(std::sin(phi))) << k;
    }
}

}  // namespace
}  // namespace korvane
