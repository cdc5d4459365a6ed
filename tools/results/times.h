/** Positions in samples as seconds; the only place where they are rounded. */
#ifndef KORVANE_TOOLS_RESULTS_TIMES_H
#define KORVANE_TOOLS_RESULTS_TIMES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace korvane::tool {

// Units in a second.
constexpr int64_t kMilli = 1000;
constexpr int64_t kMicro = 1000000;

/** Samples in units of 1/scale seconds, rounded to nearest, halves up. `rate` is 1 Hz or more. */
int64_t ticks(int64_t samples, int rate, int64_t scale);

/** At least so many digits, zeros in front. */
std::string zero_padded(int64_t number, std::size_t digits);

/** Seconds with three decimals (kMilli) or six (kMicro). */
std::string seconds(int64_t samples, int rate, int64_t scale);

}  // namespace korvane::tool

#endif
