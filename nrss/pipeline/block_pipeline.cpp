#include "nrss/pipeline/block_pipeline.h"

#include "dsp/band_processor.h"
#include "dsp/filter_bank.h"
#include "dsp/instruction_set.h"
#include "nrss/gain/spectral_gain.h"
#include "nrss/pipeline/framing.h"
#include "nrss/pipeline/full_band.h"

namespace korvane {

namespace {

/** A pair of frame buffers in its roles for one hop. */
struct FramePair {
    int32_t* cur;
    int32_t* oth;

    [[nodiscard]] FramePair swapped() const { return {oth, cur}; }
};

/** What a channel brings to a hop. */
struct Channel {
    FramePair frames;       // full band or low band
    FramePair high_frames;  // two-band path only
    int32_t* split_state;
    int32_t* merge_state;
    bool computes_gains;

    /** The same channel in the next hop: the buffers of each pair have changed roles. */
    [[nodiscard]] Channel next_hop() const {
        return {frames.swapped(), high_frames.swapped(), split_state, merge_state, computes_gains};
    }
};

/** One hop of 144 samples at x, in place. */
void full_band_hop(NrssState& s, int16_t* x, const Channel& channel) {
    const auto [cur, oth] = channel.frames;
    NRSS_WindowFrame(x, cur, oth);
    NRSS_ProcessFullBand(s, cur, channel.computes_gains);
    NRSS_OverlapAdd(cur, oth, x);
}

/** What the band processor asks of the gain engine. */
const int16_t* gain_step(void* gain_state, const int32_t* spectrum, int n) {
    NrssState& s = *static_cast<NrssState*>(gain_state);
    if (spectrum != nullptr) {
        NRSS_SpectralGain(s, spectrum, n, 1);
    }
    return s.gain;
}

/** One hop of 288 samples at x, in place. */
void two_band_hop(NrssState& s, int16_t* x, const Channel& channel) {
    BandPair bands;
    const auto [cur, oth] = channel.frames;
    const auto [high_cur, high_oth] = channel.high_frames;
    NRSS_SplitBands(x, channel.split_state, bands, 2 * kBandSize);
    NRSS_WindowFrame(bands.low, cur, oth);
    NRSS_WindowFrame(bands.high, high_cur, high_oth);
    NRSS_ProcessBand(gain_step, &s, cur, high_cur, channel.computes_gains ? 1 : 0, kBins);
    NRSS_OverlapAdd(cur, oth, bands.low);
    NRSS_OverlapAdd(high_cur, high_oth, bands.high);
    NRSS_MergeBands(bands, x, channel.merge_state, 2 * kBandSize);
}

}  // namespace

void process_blocks_plain(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n) {
    const bool two_channels = ch1 != ch0;
    const auto process_hop = s.rate_class == kTwoBandClass ? two_band_hop : full_band_hop;
    const Channel first0{{s.ch0_frame_a, s.ch0_frame_b},
                         {s.ch0_high_a, s.ch0_high_b},
                         s.split_state_ch0,
                         s.merge_state_ch0,
                         true};
    const Channel first1{{s.ch1_frame_a, s.ch1_frame_b},
                         {s.ch1_high_a, s.ch1_high_b},
                         s.split_state_ch1,
                         s.merge_state_ch1,
                         false};
    const Channel second0 = first0.next_hop();
    const Channel second1 = first1.next_hop();

    // A sub-block is two hops. Channel 0 goes first in each, so that channel 1 is weighted with the
    // gains of that very hop.
    const int32_t hop = s.frame_len / 2;
    for (int32_t start = 0; s.frame_len <= n - start; start += s.frame_len) {
        process_hop(s, ch0 + start, first0);
        if (two_channels) {
            process_hop(s, ch1 + start, first1);
        }
        process_hop(s, ch0 + start + hop, second0);
        if (two_channels) {
            process_hop(s, ch1 + start + hop, second1);
        }
    }
}

namespace {

/** The form in use. A build with vector code has no need of the plain one. */
ProcessBlocks process_blocks() {
#if defined(KORVANE_SIMD) && defined(__x86_64__)
    return instruction_set() == InstructionSet::kAvx2 ? avx2::process_blocks : sse2::process_blocks;
#elif defined(KORVANE_SIMD) && defined(__aarch64__)
    return neon::process_blocks;
#else
    return process_blocks_plain;
#endif
}

}  // namespace

void NRSS_Nonintlvd(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n) {
    if (s.level != 0) {
        process_blocks()(s, ch0, ch1, n);
    }
}

}  // namespace korvane
