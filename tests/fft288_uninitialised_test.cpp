// The transforms before fft288_init, in a process of their own: nothing here may initialise them.
//
// With an all-zero permutation every position of a row receives line 0, the sum of the row's 16
// elements; with a stride of zero every column pass reads the row-0 element nine times, whose
// 9-point DFT is 0 but for line 0, and writes all nine lines to that one place, line 8 last. So row
// 0 becomes 0 and every other row holds its own sum, and result k reads row d[4k mod 9], d the
// digit reversal.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <complex>

#include "dsp/fft288.h"
#include "numeric_models.h"

namespace korvane {
namespace {

using Complex = std::complex<double>;

TEST(TransformsBeforeInitialisation, ForwardSeesRowSumsOnly) {
    test::Random random(4);
    std::array<int32_t, kFrameSize> x;
    std::array<Complex, kRows> row_sum{};
    for (size_t m = 0; m < kComplexSize; ++m) {
        x[2 * m] = random.between(-2000, 2000);
        x[2 * m + 1] = random.between(-2000, 2000);
        row_sum[m % kRows] += Complex(x[2 * m], x[2 * m + 1]);
    }
    row_sum[0] = 0;
    const auto result = [&](size_t k) {
        const size_t line = 4 * k % kRows;
        return row_sum[line % 3 * 3 + line / 3];
    };
    real_fft288(x.data(), x.data());
    EXPECT_EQ(x[0], 0);  // results 0 and 72 stand in row 0
    EXPECT_EQ(x[1], 0);
    EXPECT_EQ(x[144], 0);
    EXPECT_EQ(x[145], 0);
    for (size_t k = 1; k < kComplexSize; ++k) {
        const Complex a = result(k);
        const Complex b = std::conj(result(kComplexSize - k));
        const double angle = -2 * std::numbers::pi * static_cast<double>(k) / kFrameSize;
        const Complex expected =
            (a + b) / 2.0 - Complex(0, 1) * std::polar(1.0, angle) * (a - b) / 2.0;
        // Two truncated products and a halving, and the rounding of the twiddles.
        const double bound = 2.5 + std::abs(a - b) / 2 * 0.71 / 32768;
        EXPECT_NEAR(x[2 * k], expected.real(), bound) << k;
        EXPECT_NEAR(x[2 * k + 1], expected.imag(), bound) << k;
    }
}

TEST(TransformsBeforeInitialisation, InverseLosesWhatEntersRowZero) {
    // DC, Nyquist and bin 72 are elements 0 and 72; the sums of the other rows are 0.
    std::array<int32_t, kFrameSize> x{12345, -6789};
    x[144] = 1000;
    x[145] = -999;
    real_ifft288(x.data(), x.data());
    EXPECT_EQ(x, (std::array<int32_t, kFrameSize>{}));
    // Re X[1] alone: elements 1 and 143 enter rows 1 and 8, each read by 16 complex results.
    x[2] = 1 << 20;
    real_ifft288(x.data(), x.data());
    EXPECT_EQ(std::count(x.begin(), x.end(), 0), kFrameSize - 2 * 2 * kColumns);
}

}  // namespace
}  // namespace korvane
