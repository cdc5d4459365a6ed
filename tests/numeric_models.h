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

/** Seeded integers, uniform in lo..hi; the whole range of int32 is allowed. */
class Random {
  public:
    explicit Random(uint32_t seed) : state_(seed) {}

    int32_t between(int32_t lo, int32_t hi) {
        const uint32_t span = static_cast<uint32_t>(hi) - static_cast<uint32_t>(lo) + 1;
        const uint32_t value = draw(&state_);
        return static_cast<int32_t>(static_cast<uint32_t>(lo) + (span == 0 ? value : value % span));
    }
    int16_t sample(int32_t amplitude) {
        return static_cast<int16_t>(between(-amplitude, amplitude));
    }
    Samples noise(size_t n, int32_t amplitude) {
        Samples x(n);
        for (int16_t& v : x) {
            v = sample(amplitude);
        }
        return x;
    }

  private:
    uint32_t state_;
};

/** amplitude * sin(2 pi f n), f in cycles per sample. */
inline Samples tone(size_t n, double amplitude, double f) {
    Samples x(n);
    for (size_t i = 0; i < n; ++i) {
        x[i] = static_cast<int16_t>(
            std::lround(amplitude * std::sin(2 * std::numbers::pi * f * static_cast<double>(i))));
    }
    return x;
}

/** Root of the mean square of a[from..] - b[from..]. */
template <class A, class B>
double rms_difference(const A& a, const B& b, size_t from) {
    double sum = 0;
    for (size_t i = from; i < a.size(); ++i) {
        const double d = static_cast<double>(a[i]) - static_cast<double>(b[i]);
        sum += d * d;
    }
    return std::sqrt(sum / static_cast<double>(a.size() - from));
}

template <class A>
double rms(const A& a, size_t from = 0) {
    return rms_difference(a, Reals(a.size()), from);
}

/** Second-order allpass, the product of two first-order ones; its denominator is held in Q14. */
struct Allpass {
    double c1;
    double c2;
    double u1 = 0;
    double u2 = 0;

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

/** The two branches of the filter bank, by their first-order coefficients. */
inline Allpass branch_a() { return {0.89749, 0.40580}; }
inline Allpass branch_b() { return {0.67861, 0.12718}; }

struct Bands {
    Reals low;
    Reals high;
};

/** The split, both bands with their inverted sign. */
template <class Signal>
Bands split(const Signal& x) {
    Allpass a = branch_a();
    Allpass b = branch_b();
    Bands bands;
    for (size_t m = 0; m + 1 < x.size(); m += 2) {
        const double even = a.step(x[m]);
        const double odd = b.step(x[m + 1]);
        bands.low.push_back(-(even + odd) / 2);
        bands.high.push_back(-(even - odd) / 2);
    }
    return bands;
}

inline Reals merge(const Bands& bands) {
    Allpass a = branch_a();
    Allpass b = branch_b();
    Reals x;
    for (size_t m = 0; m < bands.low.size(); ++m) {
        x.push_back(-b.step(bands.low[m] + bands.high[m]));
        x.push_back(-a.step(bands.low[m] - bands.high[m]));
    }
    return x;
}

}  // namespace korvane::test

#endif
