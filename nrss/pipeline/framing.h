/**
 * Overlap-add framing: a signal becomes frames of 288 values that overlap by half, and processed
 * frames become samples again, one hop late. Frame by frame a hop is windowed twice, under the falling
 * half of the window as the second half of its own frame and under the rising half as the first half of
 * the next one. The window is the same for analysis and synthesis, and its halves are
 * power-complementary.
 *
 * A batch of frames, kHops consecutive hops of each of its signals, is 144 complex values: samples 2m
 * and 2m + 1 of every frame.
 */
#ifndef KORVANE_NRSS_PIPELINE_FRAMING_H
#define KORVANE_NRSS_PIPELINE_FRAMING_H

#include <algorithm>
#include <cstddef>

#include "dsp/fft288.h"
#include "dsp/lanes.h"
#include "nrss/gain/nrss_state.h"
#include "nrss/gain/window_table.h"

namespace korvane {

/** One signal's part in a batch. */
struct Signal {
    int16_t* x;  ///< [0..kHops*144-1] samples, overwritten
    FrameMemory* memory;
};

/** The window's halves in 32 bits, so that a value broadcasts in one instruction. */
struct WideWindow {
    int32_t rising[kHopSize];
    int32_t falling[kHopSize];
};
inline constexpr auto kWideWindow = [] {
    WideWindow w{};
    for (int k = 0; k < kHopSize; ++k) {
        w.rising[k] = kWindow[k];
        w.falling[kHopSize - 1 - k] = kWindow[k];
    }
    return w;
}();

}  // namespace korvane

namespace korvane::KORVANE_ISA {

/** Samples x under the value w of the window. */
template <class V>
KORVANE_INLINE V windowed(V x, V w) {
    return asr<15>(mul_samples(x, w));
}
/** The sum of two processed frames where they overlap, each under its half of the window. */
template <class V>
KORVANE_INLINE V overlapped(V head, V rising, V tail, V falling) {
    return add_wrap(mul_half_positive(add_wrap(head, head), rising),
                    mul_half_positive(add_wrap(tail, tail), falling));
}

// ---- Batches: samples 2m and 2m + 1 of every frame ----------------------------------------------

/**
 * Analysis: windows the hops of a batch into frames. The last hop is kept for the next batch.
 *
 * @param signals  [0..kFrames/kHops-1]
 * @param work     [0..143], written
 * @param at       at(work, m) is where samples 2m and 2m + 1 of the frames go
 */
template <int kHops, int kFrames, class At>
void NRSS_WindowFrame(const Signal* signals, Lanes<2 * kFrames>* work, At at) {
    using Z = Lanes<2 * kFrames>;
    const int16_t* before[size_t{kFrames}];  // the hop before the frame's own
    const int16_t* hop[size_t{kFrames}];
    for (int l = 0; l < kFrames; ++l) {
        const Signal& signal = signals[l / kHops];
        hop[l] = signal.x + kHopSize * (l % kHops);
        before[l] = l % kHops == 0 ? signal.memory->last_hop : hop[l] - kHopSize;
    }
    for (int m = 0; m < kHopSize / 2; m += 4) {
        Z head[4];
        Z tail[4];
        load_pairs<kFrames>(before, 2 * m, head);
        load_pairs<kFrames>(hop, 2 * m, tail);
        for (int i = 0; i < 4; ++i) {
            const int k = 2 * (m + i);
            at(work, m + i) = windowed(head[i], broadcast_words<Z, 1>(kWideWindow.rising + k));
            at(work, kHopSize / 2 + m + i) =
                windowed(tail[i], broadcast_words<Z, 1>(kWideWindow.falling + k));
        }
    }
    for (int s = 0; s < kFrames / kHops; ++s) {
        std::copy_n(hop[kHops * s + kHops - 1], kHopSize, signals[s].memory->last_hop);
    }
}

/**
 * Values of every frame, moved to the frame of the next hop. The first hop of each signal receives what
 * the last batch has kept, and those of the last hop are kept in their place.
 *
 * @param z     values of the second half of each frame
 * @param kept  [signal] [0..1] the same two values of the frame before
 */
template <int kHops, int kFrames>
KORVANE_INLINE Lanes<2 * kFrames> to_next_hop(const Lanes<2 * kFrames>& z, int32_t* const* kept,
                                              int k) {
    constexpr int kSignals = kFrames / kHops;
    int32_t before[2 * size_t{kSignals}];
    for (int i = 0; i < 2 * kSignals; ++i) {
        int32_t& value = kept[i % kSignals][k + i / kSignals];
        before[i] = value;
        value = lane_in_memory(z, i * kHops + kHops - 1);
    }
    return insert_first<kHops>(rotate<kHops>(z), first_lanes<kHops, 2 * kSignals>(before));
}

/**
 * Synthesis: the first half of each processed frame under the rising half of the window plus the second
 * half of the frame before it under the falling half.
 *
 * @param work     [0..143], the processed frames
 * @param at       at(work, m) is where samples 2m and 2m + 1 of the frames are
 * @param signals  [0..kFrames/kHops-1] samples written, saturated
 */
template <int kHops, int kFrames, class At>
void NRSS_OverlapAdd(const Lanes<2 * kFrames>* work, const Signal* signals, At at) {
    using Z = Lanes<2 * kFrames>;
    int16_t* hop[size_t{kFrames}];
    int32_t* kept[size_t{kFrames / kHops}];
    for (int l = 0; l < kFrames; ++l) {
        hop[l] = signals[l / kHops].x + kHopSize * (l % kHops);
        kept[l / kHops] = signals[l / kHops].memory->tail;
    }
    for (int m = 0; m < kHopSize / 2; m += 4) {
        Z x[4];
        for (int i = 0; i < 4; ++i) {
            const int k = 2 * (m + i);
            const Z tail = to_next_hop<kHops, kFrames>(at(work, kHopSize / 2 + m + i), kept, k);
            x[i] = overlapped(at(work, m + i), broadcast_words<Z, 1>(kWideWindow.rising + k), tail,
                              broadcast_words<Z, 1>(kWideWindow.falling + k));
        }
        store_pairs<kFrames>(x, hop, 2 * m);
    }
}

// ---- One hop of one signal, consecutive samples in the lanes -------------------------------------

/** Windows a hop of 144 samples into a frame, [0..287] int32. */
template <class V>
KORVANE_INLINE void window_hop(const Signal& signal, int32_t* frame) {
    for (int k = 0; k < kHopSize; k += kLanesOf<V>) {
        store(frame + k, windowed(load_lanes<V>(signal.memory->last_hop + k),
                                  load_lanes<V>(kWideWindow.rising + k)));
        store(frame + kHopSize + k,
              windowed(load_lanes<V>(signal.x + k), load_lanes<V>(kWideWindow.falling + k)));
    }
    std::copy_n(signal.x, kHopSize, signal.memory->last_hop);
}
/** Turns a processed frame, its values within 16 bits, into a hop of samples. */
template <class V>
KORVANE_INLINE void overlap_hop(const int32_t* frame, const Signal& signal) {
    int32_t* const tail = signal.memory->tail;
    for (int k = 0; k < kHopSize; k += kLanesOf<V>) {
        store(signal.x + k,
              add_wrap(windowed(load_lanes<V>(frame + k), load_lanes<V>(kWideWindow.rising + k)),
                       windowed(load_lanes<V>(tail + k), load_lanes<V>(kWideWindow.falling + k))));
    }
    std::copy_n(frame + kHopSize, kHopSize, tail);
}

}  // namespace korvane::KORVANE_ISA

#endif
