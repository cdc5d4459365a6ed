// The exported transforms.

#include "dsp/fft288.h"

#include "dsp/fft288_single.h"
#include "dsp/instruction_set.h"

namespace korvane {

namespace {

using plain::Direction;

constinit bool initialised = false;

/**
 * The 144-point transform before fft288_init, whose permutation is then all zero. Every column of a row
 * holds the row's line 0, the sum of its elements. Every column pass reads nine times from row 0 and
 * leaves line 8 there.
 *
 * @param out  [0..287] 144 complex values
 * @param in   [0..287] 144 complex values
 */
template <Direction kDirection>
void transform144_uninitialised(int32_t* out, const int32_t* in) {
    plain::Lanes<2> sum[kRows] = {};
    for (int m = 0; m < kComplexSize; ++m) {
        sum[m % kRows] = add_wrap(sum[m % kRows], plain::Lanes<2>::load(in + 2 * m));
    }
    plain::Lanes<2> column[kRows];
    for (auto& element : column) {
        element = sum[0];
    }
    plain::dft9<kDirection>(column);
    sum[0] = column[kRows - 1];
    for (int k = 0; k < kComplexSize; ++k) {
        store(out + 2 * k, sum[plain::dft9_position(4 * k % kRows)]);
    }
}

}  // namespace

}  // namespace korvane

extern "C" {

void fft288_init(void) { korvane::initialised = true; }

void real_fft288(int32_t* out, const int32_t* in) {
    using namespace korvane;
    if (initialised) {
        instruction_set().real_fft288(out, in);
        return;
    }
    int32_t lines[kFrameSize];
    transform144_uninitialised<Direction::kForward>(lines, in);
    plain::split_lines(out, lines);
}

void real_ifft288(int32_t* out, const int32_t* in) {
    using namespace korvane;
    if (initialised) {
        instruction_set().real_ifft288(out, in);
        return;
    }
    int32_t lines[kFrameSize];
    plain::unsplit_lines(lines, in);
    transform144_uninitialised<Direction::kInverse>(out, lines);
}

}  // extern "C"
