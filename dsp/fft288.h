/**
 * Real DFT of 288 points in fixed point. The transforms themselves are exported: korvane_nrss.h
 * says what they compute and how their spectrum is packed. This header adds what the rest of the
 * library and its tests need to know of their shape.
 */
#ifndef KORVANE_DSP_FFT288_H
#define KORVANE_DSP_FFT288_H

#include "korvane_nrss.h"

namespace korvane {

inline constexpr int kFrameSize = 288;    ///< real values in a frame
inline constexpr int kComplexSize = 144;  ///< points of the complex transform inside
inline constexpr int kRows = 9;           ///< rows of the prime-factor work area
inline constexpr int kColumns = 16;       ///< columns of it; 9 * 16 = 144

}  // namespace korvane

#endif
