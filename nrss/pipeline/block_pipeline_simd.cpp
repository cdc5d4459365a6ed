// The block pipeline in vectors.
//
// Hop by hop, a block is: window, transform, gains, weighting, inverse transform, overlap-add. Only
// the gains tie one hop to the next; everything before them needs the input alone. So the work is
// done in another order, with the same results: the frames of all hops of a block are windowed and
// transformed side by side, one frame to a lane; the gain engine then runs hop after hop on channel
// 0's powers, vectorised across bins; and all frames are weighted, each with the gains of its own
// hop, transformed back and overlapped side by side.
//
// A batch has kHops hops of each of its channels, the channels one after the other:
//     Quad, 4 hops    one channel           Duo, 2 hops     one channel
//     Wide, 4 hops    two channels, where Wide has eight lanes
//     Quad, 2 hops    two channels
// "The hop before" is then the lane before, and for the first hop what the last batch left.

#include <algorithm>
#include <type_traits>

#include "dsp/fft288_batch.h"
#include "dsp/filter_bank_simd.h"
#include "nrss/gain/gain_engine.h"
#include "nrss/pipeline/block_pipeline.h"

namespace korvane::KORVANE_ISA {

namespace {

/** One channel's part in a batch: kHops * 144 samples in and out, and what it keeps between
 * batches. */
struct Signal {
    const int16_t* in;
    int16_t* out;     // may be in
    int32_t* rising;  // [0..143] the last hop under the rising window
    int32_t* tail;    // [0..143] second half of the last processed frame
};

/** The work area of a batch; carries nothing from one batch to the next. */
template <class V>
struct BatchArea {
    ComplexBatch<V> work[kComplexSize];
    ComplexBatch<V> spectrum[kComplexSize];
};

constexpr int kMaxHops = 4;

/** The powers of channel 0's bins in the hops of a batch, and the gains computed from them. */
struct HopGains {
    alignas(32) int32_t power[kMaxHops][kRowSize];
    alignas(32) int16_t gain[kMaxHops][kRowSize];
};

/** The rising window in 32 bits, so that a value broadcasts in one instruction. */
constexpr auto wide_window = [] {
    struct {
        int32_t w[kHopSize];
        // NOLINTNEXTLINE(google-explicit-constructor,hicpp-explicit-conversions): it stands for its array
        constexpr operator const int32_t*() const { return w; }
    } table{};
    for (int k = 0; k < kHopSize; ++k) {
        table.w[k] = kWindow[k];
    }
    return table;
}();

template <class V, int kHops>
constexpr int kChannelsOf = V::kLanes / kHops;

/** Word k of every channel's kept array, in the lane of its first hop. */
template <class V, int kHops>
KORVANE_INLINE V gather_kept(const int32_t* const* kept, int k) {
    if constexpr (kChannelsOf<V, kHops> == 1) {
        return single4(kept[0][k]);
    } else if constexpr (kHops == 2) {
        return pair4(kept[0][k], kept[1][k]);
    } else {
        return V::join(single4(kept[0][k]), single4(kept[1][k]));
    }
}

/** The reverse. */
template <class V, int kHops>
KORVANE_INLINE void scatter_kept(V v, int32_t* const* kept, int k) {
    kept[0][k] = lane0(group0(v));
    if constexpr (V::kLanes == 8) {
        kept[1][k] = lane0(group1(v));
    } else if constexpr (kChannelsOf<V, kHops> == 2) {
        kept[1][k] = lane2(v);
    }
}

/**
 * Exchanges samples 2m and 2m + 1 of a half frame with the hop before: returns for each lane the z
 * of the lane before it, and for the first hop what was kept; keeps the z of the last hop.
 */
template <class V, int kHops>
KORVANE_INLINE ComplexBatch<V> from_hop_before(const ComplexBatch<V>& z, int32_t* const* kept,
                                               int m) {
    const auto moved = on_parts([](auto x) { return cycle<kHops>(x); }, z);
    const auto last_batch =
        from_parts<V>(gather_kept<V, kHops>(kept, 2 * m), gather_kept<V, kHops>(kept, 2 * m + 1));
    const auto last_hop = parts(moved);
    scatter_kept<V, kHops>(last_hop.re, kept, 2 * m);
    scatter_kept<V, kHops>(last_hop.im, kept, 2 * m + 1);
    return on_parts([](auto first, auto rest) { return first_of_cycle<kHops>(first, rest); },
                    last_batch, moved);
}

/** The rising window at samples 2m and 2m + 1 of a half frame; the falling one. */
template <class V>
KORVANE_INLINE ComplexBatch<V> rising_window(int m) {
    return broadcast_parts<V>(wide_window[2 * m], wide_window[2 * m + 1]);
}
template <class V>
KORVANE_INLINE ComplexBatch<V> falling_window(int m) {
    return broadcast_parts<V>(wide_window[kHopSize - 1 - 2 * m], wide_window[kHopSize - 2 - 2 * m]);
}

constexpr int kHalfFrame = kHopSize / 2;  // in complex values

/** Windows the hops of a batch into frames, as NRSS_WindowFrame does, where the transform wants
 * them. */
template <class V, int kHops>
void window_frames(const Signal* signals, ComplexBatch<V>* work) {
    constexpr int kChannels = kChannelsOf<V, kHops>;
    const int16_t* lane[V::kLanes];
    int32_t* rising[size_t{kChannels}];
    for (int l = 0; l < V::kLanes; ++l) {
        lane[l] = signals[l / kHops].in + kHopSize * (l % kHops);
    }
    for (int c = 0; c < kChannels; ++c) {
        rising[c] = signals[c].rising;
    }
    const auto windowed = [](auto x, auto w) { return asr<15>(mul_samples(x, w)); };
    for (int m = 0; m < kHalfFrame; m += 4) {
        ComplexBatch<V> x[4];
        load_complex_samples(lane, x);
        for (int i = 0; i < 4; ++i) {
            entry(work, m + i) = from_hop_before<V, kHops>(
                on_parts(windowed, x[i], rising_window<V>(m + i)), rising, m + i);
            entry(work, kHalfFrame + m + i) = on_parts(windowed, x[i], falling_window<V>(m + i));
        }
        for (int l = 0; l < V::kLanes; ++l) {
            lane[l] += 8;
        }
    }
}

/** The power of a bin of channel 0, hop by hop. */
template <class V>
KORVANE_INLINE Quad channel0_power(const Complex<V>& bin) {
    const Quad re = group0(bin.re);
    const Quad im = group0(bin.im);
    return add_wrap(add_wrap(mul_low(re, re), mul_low(im, im)), Quad::broadcast(2));
}
template <class P>
KORVANE_INLINE Quad channel0_power(Packed<P> bin) {
    const auto squares = parts(Packed<P>{mul_low(bin.v, bin.v)});
    return add_wrap(add_wrap(squares.re, squares.im), Quad::broadcast(2));
}

/** The powers of channel 0's bins, hop by hop, as the gain engine takes them. */
template <class V, int kHops>
void channel0_powers(const ComplexBatch<V>* spectrum, HopGains& hops) {
    for (int k = 0; k < kBins; k += 4) {
        Quad p[4];
        for (int i = 0; i < 4; ++i) {
            p[i] = channel0_power(spectrum[k + i]);
        }
        transpose(p[0], p[1], p[2], p[3]);
        for (int h = 0; h < kHops; ++h) {
            store(hops.power[h] + k, p[h]);
        }
    }
}

/** Runs the gain engine on the hops of channel 0, in their order. */
void compute_gains_of_hops(NrssState& s, HopGains& hops, int count, int32_t extra_bins) {
    for (int h = 0; h < count; ++h) {
        run_gain_engine<Braid>(s, hops.power[h], extra_bins);
        std::copy_n(s.gain, kGains, hops.gain[h]);
    }
}

/** Weights every bin with the gain of its hop, as NRSS_GainMul does, and clears DC and Nyquist. */
template <class V, int kHops>
void weight_bins(ComplexBatch<V>* spectrum, const HopGains& hops) {
    const int16_t* lane[V::kLanes];
    for (int l = 0; l < V::kLanes; ++l) {
        lane[l] = hops.gain[l % kHops];
    }
    const auto weighted = [](auto x, auto gain) {
        const auto product = mul_q15(x, gain);
        return add_wrap(product, lsr<31>(product));
    };
    for (int k = 0; k < kBins; k += 8) {
        ComplexBatch<V> gains[4];  // of two bins each
        load_complex_samples(lane, gains);
        for (int i = 0; i < 4; ++i) {
            ComplexBatch<V>* const bins = spectrum + k + 2 * i;
            bins[0] = on_parts(weighted, bins[0], real_twice(gains[i]));
            bins[1] = on_parts(weighted, bins[1], imaginary_twice(gains[i]));
        }
        for (int l = 0; l < V::kLanes; ++l) {
            lane[l] += 8;
        }
    }
    spectrum[0] = broadcast_parts<V>(0, 0);
}

/** Turns processed frames into samples, as NRSS_OverlapAdd does. */
template <class V, int kHops>
void overlap_add(const ComplexBatch<V>* work, const Signal* signals) {
    constexpr int kChannels = kChannelsOf<V, kHops>;
    int16_t* lane[V::kLanes];
    int32_t* tail[size_t{kChannels}];
    for (int l = 0; l < V::kLanes; ++l) {
        lane[l] = signals[l / kHops].out + kHopSize * (l % kHops);
    }
    for (int c = 0; c < kChannels; ++c) {
        tail[c] = signals[c].tail;
    }
    const auto overlapped = [](auto head, auto rising, auto before, auto falling) {
        return add_wrap(mul_half_positive(add_wrap(head, head), rising),
                        mul_half_positive(add_wrap(before, before), falling));
    };
    for (int m = 0; m < kHalfFrame; m += 4) {
        ComplexBatch<V> x[4];
        for (int i = 0; i < 4; ++i) {
            const auto before =
                from_hop_before<V, kHops>(result(work, kHalfFrame + m + i), tail, m + i);
            x[i] = on_parts(overlapped, result(work, m + i), rising_window<V>(m + i), before,
                            falling_window<V>(m + i));
        }
        store_complex_samples(x, lane);
        for (int l = 0; l < V::kLanes; ++l) {
            lane[l] += 8;
        }
    }
}

/** A batch of the full band; the gains are computed by the batch that has channel 0. */
template <class V, int kHops>
void full_band_batch(NrssState& s, const Signal* signals, HopGains& hops, bool computes_gains) {
    BatchArea<V> area;
    window_frames<V, kHops>(signals, area.work);
    forward_batch<8, V>(area.work, area.spectrum);
    if (computes_gains) {
        channel0_powers<V, kHops>(area.spectrum, hops);
        compute_gains_of_hops(s, hops, kHops, 0);
    }
    weight_bins<V, kHops>(area.spectrum, hops);
    inverse_batch<V>(area.spectrum, area.work);
    overlap_add<V, kHops>(area.work, signals);
}

/** A batch of the low band; hops has the energies of channel 0's high band. */
template <class V>
void low_band_batch(NrssState& s, const Signal* signals, HopGains& hops) {
    BatchArea<V> area;
    window_frames<V, 2>(signals, area.work);
    forward_batch<7, V>(area.work, area.spectrum);
    channel0_powers<V, 2>(area.spectrum, hops);
    compute_gains_of_hops(s, hops, 2, 1);
    weight_bins<V, 2>(area.spectrum, hops);
    inverse_batch<V>(area.spectrum, area.work);
    overlap_add<V, 2>(area.work, signals);
}

/** The high band of one channel: two hops windowed, weighted by one gain each, and overlapped. The
 * values stay within 16 bits throughout, so the products are exact in 32. */
class HighBand {
  public:
    explicit HighBand(const Signal& signal) : signal_(signal) {}

    /** Energy of the frame of hop h, each square divided by 65536. */
    [[nodiscard]] int32_t energy(int h) const {
        Wide sum = Wide::broadcast(0);
        for (int k = 0; k < kHopSize; k += Wide::kLanes) {
            const Wide rising = rising_part(h, k);
            const Wide falling = falling_part(h, k);
            sum = add_wrap(sum, asr<16>(mul_low(rising, rising)));
            sum = add_wrap(sum, asr<16>(mul_low(falling, falling)));
        }
        return sum_lanes(sum);
    }

    /** Weights and overlaps both hops; the state advances. */
    void process(const HopGains& hops) const {
        for (int k = 0; k < kHopSize; k += Wide::kLanes) {
            const Wide head0 = weighted(hops, 0, rising_part(0, k));
            const Wide tail0 = weighted(hops, 0, falling_part(0, k));
            const Wide head1 = weighted(hops, 1, rising_part(1, k));
            const Wide tail1 = weighted(hops, 1, falling_part(1, k));
            const Wide kept = Wide::load(signal_.tail + k);
            store(signal_.tail + k, tail1);
            store(signal_.rising + k, rising_part(2, k));
            store_saturated(signal_.out + k, overlapped(head0, kept, k));
            store_saturated(signal_.out + kHopSize + k, overlapped(head1, tail0, k));
        }
    }

  private:
    [[nodiscard]] KORVANE_INLINE Wide falling_window(int k) const {
        return reverse(Wide::extend(kWindow + kHopSize - Wide::kLanes - k));
    }
    /** First half of the frame of hop h: the hop before it under the rising window. */
    [[nodiscard]] KORVANE_INLINE Wide rising_part(int h, int k) const {
        if (h == 0) {
            return Wide::load(signal_.rising + k);
        }
        const Wide x = Wide::extend(signal_.in + kHopSize * (h - 1) + k);
        return asr<15>(mul_samples(x, Wide::extend(kWindow + k)));
    }
    [[nodiscard]] KORVANE_INLINE Wide falling_part(int h, int k) const {
        return asr<15>(mul_samples(Wide::extend(signal_.in + kHopSize * h + k), falling_window(k)));
    }
    KORVANE_INLINE static Wide weighted(const HopGains& hops, int h, Wide v) {
        return mul_q15(v, Wide::broadcast(hops.gain[h][kBins]));
    }
    [[nodiscard]] KORVANE_INLINE Wide overlapped(Wide head, Wide tail, int k) const {
        return add_wrap(mul_half_positive(add_wrap(head, head), Wide::extend(kWindow + k)),
                        mul_half_positive(add_wrap(tail, tail), falling_window(k)));
    }

    Signal signal_;
};

Signal channel0_frames(NrssState& s, int16_t* x) {
    return {x, x, s.ch0_frame_a, s.ch0_frame_b + kHopSize};
}

Signal channel1_frames(NrssState& s, int16_t* x) {
    return {x, x, s.ch1_frame_a, s.ch1_frame_b + kHopSize};
}

void full_band(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n) {
    HopGains hops;
    const bool two_channels = ch1 != ch0;
    int32_t start = 0;
    for (; n - start >= 4 * kHopSize; start += 4 * kHopSize) {
        const Signal signals[2] = {channel0_frames(s, ch0 + start),
                                   channel1_frames(s, ch1 + start)};
        if (!two_channels) {
            full_band_batch<Quad, 4>(s, signals, hops, true);
        } else if constexpr (Wide::kLanes == 8) {
            full_band_batch<Wide, 4>(s, signals, hops, true);
        } else {
            full_band_batch<Quad, 4>(s, signals, hops, true);
            full_band_batch<Quad, 4>(s, signals + 1, hops, false);
        }
    }
    if (n - start >= 2 * kHopSize) {
        const Signal signals[2] = {channel0_frames(s, ch0 + start),
                                   channel1_frames(s, ch1 + start)};
        if (two_channels) {
            full_band_batch<Quad, 2>(s, signals, hops, true);
        } else {
            full_band_batch<Duo, 2>(s, signals, hops, true);
        }
    }
}

/** One block of 576 samples a channel, that is two hops of each band. */
template <int kChannels>
void two_band_block(NrssState& s, int16_t* ch0, int16_t* ch1) {
    Bands channel_bands[size_t{kChannels}];
    int16_t* const x[2] = {ch0, ch1};
    int32_t* const split_state[2] = {s.split_state_ch0, s.split_state_ch1};
    int32_t* const merge_state[2] = {s.merge_state_ch0, s.merge_state_ch1};
    split_bands<kChannels>(x, split_state, channel_bands);

    const Signal low[2] = {channel0_frames(s, channel_bands[0].low),
                           channel1_frames(s, channel_bands[kChannels - 1].low)};
    int16_t* const high0 = channel_bands[0].high;
    int16_t* const high1 = channel_bands[kChannels - 1].high;
    const HighBand high[2] = {HighBand({high0, high0, s.ch0_high_a, s.ch0_high_b + kHopSize}),
                              HighBand({high1, high1, s.ch1_high_a, s.ch1_high_b + kHopSize})};
    HopGains hops;
    hops.power[0][kBins] = high[0].energy(0);
    hops.power[1][kBins] = high[0].energy(1);
    low_band_batch<std::conditional_t<kChannels == 2, Quad, Duo>>(s, low, hops);
    for (int c = 0; c < kChannels; ++c) {
        high[c].process(hops);
    }

    merge_bands<kChannels>(channel_bands, merge_state, x);
}

void two_band(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n) {
    constexpr int32_t kBlock = 4 * kBandSize;
    for (int32_t start = 0; n - start >= kBlock; start += kBlock) {
        if (ch1 != ch0) {
            two_band_block<2>(s, ch0 + start, ch1 + start);
        } else {
            two_band_block<1>(s, ch0 + start, ch0 + start);
        }
    }
}

}  // namespace

void process_blocks(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n) {
    if (s.rate_class == kTwoBandClass) {
        two_band(s, ch0, ch1, n);
    } else {
        full_band(s, ch0, ch1, n);
    }
}

}  // namespace korvane::KORVANE_ISA
