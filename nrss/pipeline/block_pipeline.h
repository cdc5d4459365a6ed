/**
 * Block pipeline: what Tolu_NRSS_Nonintlvd does (korvane_nrss.h).
 */
#ifndef KORVANE_NRSS_PIPELINE_BLOCK_PIPELINE_H
#define KORVANE_NRSS_PIPELINE_BLOCK_PIPELINE_H

#include "nrss/gain/nrss_state.h"

namespace korvane {

/**
 * Processes whole sub-blocks of one or two channels in place, with the code of the instruction set in
 * use; with level 0, or before the first initialisation, nothing.
 *
 * @param s    advanced
 * @param ch0  [0..n-1] int16 samples, overwritten
 * @param ch1  the same of channel 1, or ch0 for one channel
 * @param n    samples per channel; those beyond the last whole sub-block stay as they are
 *
 * Scratch is on the stack: 24 kB, by clang with AVX2 31 kB; 11 kB with one lane.
 */
void NRSS_Nonintlvd(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);

}  // namespace korvane

#endif
