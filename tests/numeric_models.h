/** Double-precision models and seeded numbers that the tests of the core share. */
#ifndef KORVANE_TESTS_NUMERIC_MODELS_H
#define KORVANE_TESTS_NUMERIC_MODELS_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <vector>

extern "C" {
#include "signals.h"
}

namespace korvane::test {

using Samples = std::vector<int16_t>;
using Reals = std::vector<double>;

/** Seeded integers. */
class Random {
  public:
    explicit Random(uint32_t seed) : state_(seed) {}

    /** Uniform in lo..hi; the whole range of int32 is allowed. */
    int32_t between(int32_t lo, int32_t hi) {
        const uint32_t span = static_cast<uint32_t>(hi) - static_cast<uint32_t>(lo) + 1;
        const uint32_t value = draw(&state_);
        return static_cast<int32_t>(static_cast<uint32_t>(lo) + (span == 0 ? value : value % span));
    }
    Samples noise(size_t n, int32_t amplitude) {
        Samples x(n);
        for (int16_t& v : x) {
            v = static_cast<int16_t>(between(-amplitude, amplitude));
        }
        return x;
    }

  private:
    uint32_t state_;
};

/** Bursts of full-scale noise in faint noise: gains open, close and saturate. */
inline Samples bursts(int n, uint32_t seed) {
    Samples x = Random(seed).noise(static_cast<size_t>(n), 32767);
    for (size_t i = 0; i < x.size(); ++i) {
        x[i] = static_cast<int16_t>(x[i] >> (i / 2500 % 3 == 1 ? 0 : 9));
    }
    return x;
}

/** Root of the mean square of a[from..] - b[from..], zeros where there is no b. */
template <class A>
double rms(const A& a, size_t from = 0, const Reals& b = {}) {
    double sum = 0;
    for (size_t i = from; i < a.size(); ++i) {
        const double d = static_cast<double>(a[i]) - (b.empty() ? 0 : b[i]);
        sum += d * d;
    }
    return std::sqrt(sum / static_cast<double>(a.size() - from));
}

/** Second-order allpass, the product of two first-order ones; its denominator is held in Q14. */
struct Allpass {
    double c1, c2;
    double u1 = 0, u2 = 0;

    Allpass(double a, double b)
        : c1(std::round(16384 * (a + b)) / 16384), c2(std::round(16384 * a * b) / 16384) {}

    double step(double g) {
        const double u = g - c1 * u1 - c2 * u2;
        const double y = c2 * u + c1 * u1 + u2;
        u2 = u1;
        u1 = u;
        return y;
    }
};

/** The filter bank: two allpass branches; both bands with their inverted sign. */
struct Bands {
    static Allpass branch_a() { return {0.89749, 0.40580}; }
    static Allpass branch_b() { return {0.67861, 0.12718}; }

    Reals low, high;

    explicit Bands(const Samples& x) {
        Allpass a = branch_a(), b = branch_b();
        for (size_t m = 0; m + 1 < x.size(); m += 2) {
            const double even = a.step(x[m]);
            const double odd = b.step(x[m + 1]);
            low.push_back(-(even + odd) / 2);
            high.push_back(-(even - odd) / 2);
        }
    }
    Reals merged() const {
        Allpass a = branch_a(), b = branch_b();
        Reals x;
        for (size_t m = 0; m < low.size(); ++m) {
            x.push_back(-b.step(low[m] + high[m]));
            x.push_back(-a.step(low[m] - high[m]));
        }
        return x;
    }
};

}  // namespace korvane::test

#endif
