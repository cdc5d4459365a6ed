// The transforms of a single frame, compiled once for each instruction set.

#include "dsp/fft288_single.h"

namespace korvane::KORVANE_ISA {

void real_fft288(int32_t* out, const int32_t* in) {
    int32_t lines[kFrameSize];
    single_transform144<Direction::kForward>(lines, in);
    split_lines(out, lines);
}

void real_ifft288(int32_t* out, const int32_t* in) {
    int32_t lines[kFrameSize];
    unsplit_lines(lines, in);
    single_transform144<Direction::kInverse>(out, lines);
}

}  // namespace korvane::KORVANE_ISA
