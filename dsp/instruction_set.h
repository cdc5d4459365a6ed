/**
 * What exists once for each instruction set, and which of the sets this machine runs.
 */
#ifndef KORVANE_DSP_INSTRUCTION_SET_H
#define KORVANE_DSP_INSTRUCTION_SET_H

#include <cstdint>
#include <span>

namespace korvane {

struct NrssState;

/** The code of one instruction set. All sets give the same bits. */
struct InstructionSet {
    const char* name;
    bool (*runs_here)();

    /** What real_fft288 and real_ifft288 do once they are initialised. */
    void (*real_fft288)(int32_t* out, const int32_t* in);
    void (*real_ifft288)(int32_t* out, const int32_t* in);

    /** See nrss/pipeline/block_pipeline.h. */
    void (*process_blocks)(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);
};

/** The sets of this build, the fastest first. The last runs on every machine. */
std::span<const InstructionSet> instruction_sets();

/** The set in use: the first that runs here. Asks the processor once, whichever thread comes first. */
const InstructionSet& instruction_set();

/** Puts another set that runs here to use, or with null the first one again: for tests and measurements.
 */
void use_instruction_set(const InstructionSet* set);

}  // namespace korvane

#endif
