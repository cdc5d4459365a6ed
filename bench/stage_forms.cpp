#include "bench/stage_forms.h"

#include "detector/detector.h"
#include "dsp/fft288_batch.h"
#include "dsp/filter_bank_simd.h"
#include "nrss/gain/gain_engine.h"

namespace korvane::KORVANE_ISA {

namespace {

constinit ComplexBatch<Wide> work[kComplexSize] = {};
constinit ComplexBatch<Wide> spectrum[kComplexSize] = {};

void forward() { forward_batch<8, Wide>(work, spectrum); }

void inverse() { inverse_batch<Wide>(spectrum, work); }

void gain_engine(const int32_t* power) {
    run_gain_engine<Braid>(exported_stream.suppressor, power, 0);
}

constinit Bands bands[2] = {};

template <int kChannels>
void filter_bank(int16_t* const* x) {
    NrssState& s = exported_stream.suppressor;
    int32_t* const split_state[2] = {s.split_state_ch0, s.split_state_ch1};
    int32_t* const merge_state[2] = {s.merge_state_ch0, s.merge_state_ch1};
    split_bands<kChannels>(x, split_state, bands);
    merge_bands<kChannels>(bands, merge_state, x);
}

}  // namespace

constinit const StageForms stage_forms = {Wide::kLanes, forward,        inverse,
                                          gain_engine,  filter_bank<1>, filter_bank<2>};

}  // namespace korvane::KORVANE_ISA
