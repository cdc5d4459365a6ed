/** What the tests of the pipeline, the stream and the detector share: samples between guard words
 * and seeded signals, along with the library's static state. */
#ifndef KORVANE_TESTS_GUARDED_SAMPLES_H
#define KORVANE_TESTS_GUARDED_SAMPLES_H

#include <algorithm>
#include <cstdint>

#include "library_state.h"
#include "numeric_models.h"

namespace korvane::test {

/** A buffer of samples with guard words on both sides. */
class GuardedSamples {
  public:
    explicit GuardedSamples(const Samples& x) : words_(x.size() + 2 * kGuards, kGuard) {
        std::copy(x.begin(), x.end(), words_.begin() + kGuards);
    }
    int16_t* data() { return words_.data() + kGuards; }
    Samples samples() const { return {words_.begin() + kGuards, words_.end() - kGuards}; }
    bool intact() const {
        return std::count(words_.begin(), words_.begin() + kGuards, kGuard) == kGuards &&
               std::count(words_.end() - kGuards, words_.end(), kGuard) == kGuards;
    }

  private:
    static constexpr int kGuards = 8;
    static constexpr int16_t kGuard = 0x5AA5;
    Samples words_;
};

/** Bursts of full-scale noise in faint noise: gains open, close and saturate. */
inline Samples bursts(int n, uint32_t seed) {
    Samples x = Random(seed).noise(static_cast<size_t>(n), 32767);
    for (size_t i = 0; i < x.size(); ++i) {
        x[i] = static_cast<int16_t>(x[i] >> (i / 2500 % 3 == 1 ? 0 : 9));
    }
    return x;
}

}  // namespace korvane::test

#endif
