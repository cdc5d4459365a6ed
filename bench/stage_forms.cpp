#include "bench/stage_forms.h"

#include "dsp/fft288_batch.h"
#include "dsp/filter_bank.h"
#include "nrss/gain/gain_engine.h"
#include "nrss/pipeline/framing.h"

namespace korvane::KORVANE_ISA {

void real_fft288(int32_t* out, const int32_t* in);
void real_ifft288(int32_t* out, const int32_t* in);
void process_blocks(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);

namespace {

constexpr int kFrames = kNativeLanes;
Lanes<2 * kFrames> work[kComplexSize];
Lanes<2 * kFrames> spectrum[kComplexSize];

void forward() { forward_batch<8, kFrames>(work, spectrum); }

void inverse() { inverse_batch<kFrames>(spectrum, work); }

void gain_engine(NrssState& s, const int32_t* power) {
    NRSS_SpectralGain<I32<kChainLanes>>(s, power, 0);
}

void filter_bank(NrssState& s, int16_t* const* x, int channels) {
    static int16_t bands[2][2][kStageBlock / 2];
    const int last = channels - 1;
    const BankChannel bank[2] = {
        {x[0], bands[0][0], bands[0][1], s.split_state_ch0, s.merge_state_ch0},
        {x[last], bands[last][0], bands[last][1], last == 0 ? s.split_state_ch0 : s.split_state_ch1,
         last == 0 ? s.merge_state_ch0 : s.merge_state_ch1}};
    for (int channel = 0; channel < channels; channel += kBankChannels) {
        NRSS_SplitBands(bank + channel, kStageBlock);
        NRSS_MergeBands(bank + channel, kStageBlock);
    }
}

void framing() {
    static int16_t x[kHopSize];
    static FrameMemory memory;
    static int32_t frame[kFrameSize];
    const Signal signal{x, &memory};
    window_hop<I32<kNativeLanes>>(signal, frame);
    overlap_hop<I32<kNativeLanes>>(frame, signal);
}

#define KORVANE_NAME(text) KORVANE_NAME_OF(text)
#define KORVANE_NAME_OF(text) #text
[[maybe_unused]] const auto added = &stage_forms().emplace_back(
    StageForms{KORVANE_NAME(KORVANE_ISA), real_fft288, real_ifft288, process_blocks, kFrames,
               forward, inverse, gain_engine, filter_bank, framing});

}  // namespace

}  // namespace korvane::KORVANE_ISA
