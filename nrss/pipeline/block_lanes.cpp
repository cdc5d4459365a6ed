// The hop schedule of the block pipeline, compiled once for each instruction set.
//
// Hop by hop, a block is: window, transform, gains, weighting, inverse transform, overlap-add. Only the
// gains tie one hop to the next; everything before them needs the input alone. So the work is done in
// another order, with the same results: the frames of several hops are windowed and transformed side by
// side, one frame to a lane; the gain engine then runs hop after hop on channel 0's powers, its lanes
// bins; and all frames are weighted, each with the gains of its own hop, transformed back and overlapped
// side by side. With one lane that is hop by hop, channel 0 before channel 1. The speech score, where one
// is wanted, listens to the powers and comes last, when it has heard both channels.

#include "dsp/band_processor.h"
#include "dsp/filter_bank.h"
#include "nrss/gain/gain_engine.h"
#include "nrss/pipeline/block_pipeline.h"
#include "nrss/pipeline/framing.h"
#include "nrss/pipeline/full_band.h"
#include "speech/network.h"

namespace korvane::KORVANE_ISA {

namespace {

/** Runs the gain engine on kHops hops of channel 0, in their order. */
template <int kHops>
void compute_gains(NrssState& s, HopGains& hops, int32_t extra_bins) {
    for (int hop = 0; hop < kHops; ++hop) {
        NRSS_SpectralGain<I32<kChainLanes>>(s, hops.power[hop], extra_bins);
        if (s.speech != nullptr) {
            hear_hop(*s.speech, hop, 0, hops.power[hop]);
        }
        std::copy_n(s.gain, kGains, hops.gain[hop]);
    }
}

/** kHops hops of kFrames / kHops channels of the full band. */
template <int kHops, int kFrames>
void full_band_batch(NrssState& s, const Signal* signals, HopGains& hops, bool compute) {
    using Z = Lanes<2 * kFrames>;
    const auto gain_step = [&](HopGains& h) { compute_gains<kHops>(s, h, 0); };
    Z work[kComplexSize];
    NRSS_WindowFrame<kHops, kFrames>(signals, work, entry);
    NRSS_ProcessFullBand<kHops, kFrames>(work, hops, compute, gain_step);
    NRSS_OverlapAdd<kHops, kFrames>(work, signals, result);
}

/** kHops hops of both bands. */
template <int kHops, int kFrames>
void two_band_batch(NrssState& s, const Signal* low, const Signal* high, HopGains& hops,
                    bool compute) {
    using V = I32<kNativeLanes>;
    const auto gain_step = [&](HopGains& h) { compute_gains<kHops>(s, h, 1); };
    const auto high_hop = [&](int frame) {
        const Signal& signal = high[frame / kHops];
        return Signal{signal.x + kHopSize * (frame % kHops), signal.memory};
    };
    Lanes<2 * kFrames> work[kComplexSize];
    int32_t high_frames[size_t{kFrames}][kFrameSize];
    NRSS_WindowFrame<kHops, kFrames>(low, work, entry);
    for (int frame = 0; frame < kFrames; ++frame) {
        window_hop<V>(high_hop(frame), high_frames[frame]);
    }
    NRSS_ProcessBand<kHops, kFrames>(work, high_frames, hops, compute, gain_step);
    NRSS_OverlapAdd<kHops, kFrames>(work, low, result);
    for (int frame = 0; frame < kFrames; ++frame) {
        overlap_hop<V>(high_frames[frame], high_hop(frame));
    }
}

/** f<frames>(first channel) for kHops hops of all channels, side by side where registers have room for
 * that, else one after the other, channel 0 first. */
template <int kHops, class F>
void for_channels(int channels, const F& f) {
    if constexpr (2 * kHops <= kNativeLanes) {
        if (channels == 2) {
            f.template operator()<2 * kHops>(0);
            return;
        }
    }
    for (int channel = 0; channel < channels; ++channel) {
        f.template operator()<kHops>(channel);
    }
}

/** Scores for the hops of a batch, all of whose channels are done. */
template <int kHops>
void score_batch(NrssState& s, const HopGains& hops) {
    if (s.speech == nullptr) {
        return;
    }
    for (int hop = 0; hops.both_channels && hop < kHops; ++hop) {
        hear_hop(*s.speech, hop, 1, hops.power[hop]);
    }
    score_hops<kHops>(*s.speech);
}

template <int kHops>
void full_band_hops(NrssState& s, int16_t* const* x, int32_t start, int channels) {
    HopGains hops;
    hops.both_channels = s.speech != nullptr && channels == 2;
    const Signal signals[2] = {{x[0] + start, &s.frames[0]}, {x[1] + start, &s.frames[1]}};
    for_channels<kHops>(channels, [&]<int kFrames>(int channel) {
        full_band_batch<kHops, kFrames>(s, signals + channel, hops, channel == 0);
    });
    score_batch<kHops>(s, hops);
}

void full_band(NrssState& s, int16_t* const* x, int32_t n, int channels) {
    constexpr int kHops = kNativeLanes >= 4 ? 4 : 1;
    int32_t start = 0;
    for (; n - start >= kHops * kHopSize; start += kHops * kHopSize) {
        full_band_hops<kHops>(s, x, start, channels);
    }
    if constexpr (kHops > 2) {
        if (start < n) {
            full_band_hops<2>(s, x, start, channels);
        }
    }
}

/** Two hops of 288 samples: two of each band. */
void two_band_block(NrssState& s, int16_t* const* x, int32_t start, int channels) {
    constexpr int kHops = kNativeLanes >= 4 ? 2 : 1;
    int16_t low[2][2 * kHopSize];
    int16_t high[2][2 * kHopSize];
    BankChannel bank[2] = {{x[0] + start, low[0], high[0], s.split_state_ch0, s.merge_state_ch0},
                           {x[1] + start, low[1], high[1], s.split_state_ch1, s.merge_state_ch1}};
    if (channels == 1) {
        bank[1] = bank[0];
    }
    for (int channel = 0; channel < channels; channel += kBankChannels) {
        NRSS_SplitBands(bank + channel, 4 * kHopSize);
    }
    for (int hop = 0; hop < 2; hop += kHops) {
        HopGains hops;
        hops.both_channels = s.speech != nullptr && channels == 2;
        Signal low_signals[2];
        Signal high_signals[2];
        for (int channel = 0; channel < channels; ++channel) {
            low_signals[channel] = {low[channel] + kHopSize * hop, &s.frames[channel]};
            high_signals[channel] = {high[channel] + kHopSize * hop, &s.high_frames[channel]};
        }
        for_channels<kHops>(channels, [&]<int kFrames>(int channel) {
            two_band_batch<kHops, kFrames>(s, low_signals + channel, high_signals + channel, hops,
                                           channel == 0);
        });
        score_batch<kHops>(s, hops);
    }
    for (int channel = 0; channel < channels; channel += kBankChannels) {
        NRSS_MergeBands(bank + channel, 4 * kHopSize);
    }
}

}  // namespace

void process_blocks(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n) {
    int16_t* const x[2] = {ch0, ch1};
    const int channels = ch0 == ch1 ? 1 : 2;
    const int32_t whole = n - n % s.frame_len;
    if (s.rate_class == kTwoBandClass) {
        for (int32_t start = 0; start < whole; start += s.frame_len) {
            two_band_block(s, x, start, channels);
        }
    } else {
        full_band(s, x, whole, channels);
    }
}

}  // namespace korvane::KORVANE_ISA
