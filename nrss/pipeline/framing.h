/**
 * Overlap-add framing: a signal becomes frames of 288 values that overlap by half, and processed
 * frames become samples again, one hop late.
 *
 * Each signal owns a pair of frame buffers that change roles from hop to hop. In one hop one of
 * them is the current frame (cur), the other (oth) takes what the next hop will need:
 *
 *              words 0..143                          words 144..287
 *      cur     previous hop, rising window     |     this hop, falling window
 *      oth     this hop, rising window         |     tail of the previous processed frame
 *
 * The window is the same for analysis and synthesis, and its halves are power-complementary.
 */
#ifndef KORVANE_NRSS_PIPELINE_FRAMING_H
#define KORVANE_NRSS_PIPELINE_FRAMING_H

#include "nrss/gain/window_table.h"

namespace korvane {

/**
 * Analysis: completes the current frame with a hop of new samples and stores them, under the rising
 * half of the window, for the next one.
 *
 * @param x    [0..143] int16 samples
 * @param cur  [144..287] written: the samples under the falling half
 * @param oth  [0..143] written: the samples under the rising half
 */
void NRSS_WindowFrame(const int16_t* x, int32_t* cur, int32_t* oth);

/**
 * Synthesis: the first half of the processed current frame under the rising half of the window,
 * plus the second half of the previous processed frame under the falling half.
 *
 * @param cur  [0..143] read, int32, the current processed frame
 * @param oth  [144..287] read, int32, the previous processed frame
 * @param out  [0..143] int16 samples, saturated; may be the hop's input array
 */
void NRSS_OverlapAdd(const int32_t* cur, const int32_t* oth, int16_t* out);

}  // namespace korvane

#endif
