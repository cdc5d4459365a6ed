/**
 * Band processor of the two-band path: suppresses the noise of one hop in both half-rate bands, the
 * low one bin by bin, the high one by a single gain. The high band is never transformed; all that
 * the gain engine learns of it is its energy.
 */
#ifndef KORVANE_DSP_BAND_PROCESSOR_H
#define KORVANE_DSP_BAND_PROCESSOR_H

#include <cstdint>

namespace korvane {

/** The gains of a hop, [0..n] Q15, computed from its spectrum where that is not null: n bins and the
 * high band's energy, as NRSS_ProcessBand leaves them in `frame`. */
using GainStep = const int16_t* (*)(void* gain_state, const int32_t* spectrum, int n);

/**
 * Processes one hop's frames of one channel, both in place.
 *
 * @param gain_step   computes the gains, or gives the last ones; called once
 * @param gain_state  what it remembers
 * @param frame       [0..289] int32, the windowed low-band frame in [0..2n-1]; on return 1.125
 * times the frame with its bins weighted and DC and Nyquist removed. [2n] receives the high band's
 * energy, [2n+1] 0.
 * @param high_frame  [0..2n-1] int32, the windowed high-band frame; on return weighted by gain[n]
 * @param compute     nonzero: compute new gains from this hop (channel 0); zero: use the gains as
 *                    they are (channel 1)
 * @param n           bins, 144
 */
void NRSS_ProcessBand(GainStep gain_step, void* gain_state, int32_t* frame, int32_t* high_frame,
                      int compute, int n);

}  // namespace korvane

#endif
