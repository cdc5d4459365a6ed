#include "nrss/pipeline/block_pipeline.h"

#include "dsp/instruction_set.h"

namespace korvane {

void NRSS_Nonintlvd(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n) {
    if (s.level != 0) {
        instruction_set().process_blocks(s, ch0, ch1, n);
    }
}

}  // namespace korvane
