/**
 * The window of the overlap-add framing.
 */
#ifndef KORVANE_NRSS_GAIN_WINDOW_TABLE_H
#define KORVANE_NRSS_GAIN_WINDOW_TABLE_H

#include <cstdint>

#include "dsp/fft288.h"

namespace korvane {

inline constexpr int kHopSize = kFrameSize / 2;  ///< new values a frame brings: half overlap

/**
 * Analysis and synthesis window, Q15: the rising half of a Kaiser-Bessel-derived window of 288 points,
 * alpha = 5: w[k]^2 + w[143-k]^2 = 1, so that windowing twice and overlapping by half gives the input
 * back (J. Princen, A. Bradley 1986; F. J. Harris 1978 for the Kaiser window). The falling half is the
 * rising one read backwards.
 *
 * With v[j] = I0(5*pi*sqrt(1 - (2j/144 - 1)^2)), j = 0..144 (a Kaiser window of 145 points, I0 the
 * modified Bessel function of order zero):
 * w[k] = sqrt((v[0] + ... + v[k]) / (v[0] + ... + v[144])), k = 0..143, times 32768, rounded half
 * up, at most 32767.
 */
inline constexpr int16_t kWindow[kHopSize] = {
    6,     13,    22,    33,    47,    64,    84,    109,   138,   172,   211,   255,
    306,   364,   429,   502,   583,   673,   773,   882,   1002,  1133,  1276,  1430,
    1598,  1778,  1971,  2178,  2400,  2635,  2886,  3152,  3433,  3729,  4042,  4369,
    4713,  5072,  5446,  5836,  6241,  6662,  7096,  7545,  8008,  8484,  8973,  9474,
    9987,  10510, 11044, 11587, 12138, 12697, 13262, 13833, 14409, 14988, 15570, 16154,
    16739, 17323, 17905, 18485, 19061, 19633, 20199, 20759, 21311, 21854, 22388, 22913,
    23426, 23927, 24416, 24892, 25354, 25802, 26235, 26654, 27056, 27444, 27815, 28170,
    28509, 28832, 29139, 29430, 29705, 29964, 30208, 30437, 30651, 30851, 31037, 31209,
    31368, 31515, 31651, 31774, 31887, 31990, 32084, 32168, 32244, 32312, 32373, 32427,
    32475, 32518, 32555, 32588, 32616, 32641, 32662, 32680, 32696, 32709, 32720, 32729,
    32737, 32743, 32748, 32753, 32756, 32759, 32761, 32763, 32764, 32765, 32766, 32767,
    32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767};

}  // namespace korvane

#endif
