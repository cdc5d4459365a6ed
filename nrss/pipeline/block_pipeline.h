/**
 * Block pipeline: what Tolu_NRSS_Nonintlvd does (korvane_nrss.h), and the forms in which it exists.
 *
 * Every form processes whole sub-blocks of one or two channels in place, gives the same bits and
 * keeps the same state: of each pair of frame buffers what one call leaves to the next is [0..143]
 * of buffer A (the last hop under the rising window) and [144..287] of buffer B (the tail of the
 * last processed frame); the filter memories; and the gain engine's state.
 */
#ifndef KORVANE_NRSS_PIPELINE_BLOCK_PIPELINE_H
#define KORVANE_NRSS_PIPELINE_BLOCK_PIPELINE_H

#include "nrss/gain/nrss_state.h"

namespace korvane {

/**
 * @param s    initialised, with a level of 1 or more; advanced
 * @param ch0  [0..n-1] int16 samples, overwritten
 * @param ch1  the same of channel 1, or ch0 for one channel
 * @param n    samples per channel; those beyond the last whole sub-block stay as they are
 *
 * Scratch is on the stack: up to 24 kB.
 */
using ProcessBlocks = void (*)(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);

/** Hop by hop, channel by channel, one value at a time. */
void process_blocks_plain(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);

// In vectors, the hops of a block side by side; one form for each instruction set.
namespace sse2 {
void process_blocks(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);
}
namespace avx2 {
void process_blocks(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);
}
namespace neon {
void process_blocks(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);
}

/** What Tolu_NRSS_Nonintlvd does: the form of this machine, or nothing with level 0. */
void NRSS_Nonintlvd(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);

}  // namespace korvane

#endif
