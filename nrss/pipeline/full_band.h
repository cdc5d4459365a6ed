/**
 * Full-band spectral step: one windowed frame is transformed, weighted bin by bin, and transformed
 * back.
 */
#ifndef KORVANE_NRSS_PIPELINE_FULL_BAND_H
#define KORVANE_NRSS_PIPELINE_FULL_BAND_H

#include "nrss/gain/nrss_state.h"

namespace korvane {

/**
 * @param s        the gain engine's state is updated where compute is true, its gains are read
 * @param frame    [0..287] int32, windowed samples within +-32767; on return 9/16 of the frame with
 * its bins weighted and DC and Nyquist removed
 * @param compute  true: compute new gains from this frame (channel 0); false: use the gains as they
 *                 are (channel 1)
 */
void NRSS_ProcessFullBand(NrssState& s, int32_t* frame, bool compute);

}  // namespace korvane

#endif
