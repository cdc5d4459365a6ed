/**
 * Block pipeline: Tolu_NRSS_Nonintlvd (exported, see korvane_nrss.h), and the frames of the high band
 * that it owns.
 */
#ifndef KORVANE_NRSS_PIPELINE_BLOCK_PIPELINE_H
#define KORVANE_NRSS_PIPELINE_BLOCK_PIPELINE_H

#include "dsp/fft288.h"

namespace korvane {

/** Ping-pong frame buffers of the high band, two-band path only. No initialisation clears them. */
extern int32_t ch0_high_a[kFrameWords];
extern int32_t ch0_high_b[kFrameWords];
extern int32_t ch1_high_a[kFrameWords];
extern int32_t ch1_high_b[kFrameWords];

}  // namespace korvane

#endif
