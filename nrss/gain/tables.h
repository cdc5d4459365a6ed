/**
 * Constant tables of the suppressor.
 */
#ifndef KORVANE_NRSS_GAIN_TABLES_H
#define KORVANE_NRSS_GAIN_TABLES_H

#include <cstdint>

#include "nrss/gain/window_table.h"

namespace korvane {

/** Over-subtraction weight of each bin, Q15: full weight at DC, where noise is strongest, falling to
 * one half. The frequency of a bin depends on the sampling rate, hence three tables. */
extern const int16_t kOsfLowRate[144];
extern const int16_t kOsfMidRate[288];
extern const int16_t kOsfHighRate[288];

/** Coefficients c0..c5 of the over-subtraction curve: for levels 1-3, 4-6 and 7-9. */
extern const int32_t kOsubCurves[3][6];

/** Where the lower piece of that curve ends: noise a quarter of the power, Q15. */
inline constexpr int32_t kOsubBreakpoint = 8192;

}  // namespace korvane

#endif
