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

/** A transform: real_fft288 or real_ifft288, with their arguments. */
using Transform = void (*)(int32_t* out, const int32_t* in);

/** The transforms one value at a time; they need no initialisation. Scratch on the stack: 1.2 kB. */
void real_fft288_plain(int32_t* out, const int32_t* in);
void real_ifft288_plain(int32_t* out, const int32_t* in);

// In vectors; one form for each instruction set. They need no initialisation.
namespace sse2 {
void real_fft288(int32_t* out, const int32_t* in);
void real_ifft288(int32_t* out, const int32_t* in);
}  // namespace sse2
namespace avx2 {
void real_fft288(int32_t* out, const int32_t* in);
void real_ifft288(int32_t* out, const int32_t* in);
}  // namespace avx2
namespace neon {
void real_fft288(int32_t* out, const int32_t* in);
void real_ifft288(int32_t* out, const int32_t* in);
}  // namespace neon

}  // namespace korvane

#endif
