/**
 * The detector: all that one stream remembers from call to call, and what the VoiceActivityDetection
 * calls do on it (korvane_vad.h).
 */
#ifndef KORVANE_DETECTOR_DETECTOR_H
#define KORVANE_DETECTOR_DETECTOR_H

#include <cstdint>

#include "detector/level_decision.h"
#include "korvane_vad.h"
#include "nrss/gain/nrss_state.h"
#include "nrss/stream/block_stream.h"

namespace korvane {

/** One stream, 14 kB. A record of zeros is a fresh one; nothing in it points into it. Any number of
 * them may run in a process, each on one thread at a time. */
struct Detector {
    NrssState suppressor;
    NrssStreamState stream;
    VorState level;
    /** 1 from an initialisation to the first sampling-rate configuration after it, which alone reaches
     * the suppressor. */
    uint8_t nrss_reinit_pending;
};

/** A stream's beginning at a rate in Hz: decision, ring and suppressor, without a word to the log. */
void vad_start(Detector& d, int32_t rate);

void vad_init(Detector& d);
void vad_configure_rate(Detector& d, VadHandle& handle, uint32_t rate);
void vad_configure_frame_length(VadHandle& handle, uint32_t length);
void vad_configure_channel_mode(VadHandle& handle, int mode);
int vad_execute(Detector& d, VadHandle& handle);
const char* vad_version();

/** The one stream behind the exported calls. */
extern Detector exported_stream;

}  // namespace korvane

#endif
