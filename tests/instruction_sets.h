/** The code of every instruction set that this machine runs, and that of one lane. */
#ifndef KORVANE_TESTS_INSTRUCTION_SETS_H
#define KORVANE_TESTS_INSTRUCTION_SETS_H

#include <vector>

#include "dsp/instruction_set.h"

namespace korvane::plain {
void real_fft288(int32_t* out, const int32_t* in);
void real_ifft288(int32_t* out, const int32_t* in);
void process_blocks(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);
}  // namespace korvane::plain

namespace korvane::test {

/** One lane, which the library holds only where it has no other. */
inline constexpr InstructionSet kPlain = {"plain", nullptr, plain::real_fft288, plain::real_ifft288,
                                          plain::process_blocks};

/** The sets of the build that this machine runs. */
inline std::vector<InstructionSet> sets_here() {
    std::vector<InstructionSet> sets;
    for (const InstructionSet& set : instruction_sets()) {
        if (set.runs_here()) {
            sets.push_back(set);
        }
    }
    return sets;
}

}  // namespace korvane::test

#endif
