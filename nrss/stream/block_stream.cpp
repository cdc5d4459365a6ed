#include "nrss/stream/block_stream.h"

#include <algorithm>

#include "nrss/pipeline/block_pipeline.h"

namespace korvane {

namespace {

int32_t advance(int32_t position, int32_t n) {
    position += n;
    return position < kRingSize ? position : position - kRingSize;
}

/** Copies n samples into a ring from a position on, in two runs where the ring ends between. */
void store(int16_t* ring, int32_t position, const int16_t* x, int32_t n) {
    const int32_t first = std::min(n, kRingSize - position);
    std::copy_n(x, first, ring + position);
    std::copy_n(x + first, n - first, ring);
}

/** Copies n samples out of a ring, likewise in two runs. */
void hand_back(const int16_t* ring, int32_t position, int16_t* x, int32_t n) {
    const int32_t first = std::min(n, kRingSize - position);
    std::copy_n(ring + position, first, x);
    std::copy_n(ring, n - first, x + first);
}

}  // namespace

void NRSS_BufInit(NrssStreamState& s) {
    std::fill_n(s.ring_ch0, kRingSize, int16_t{0});
    std::fill_n(s.ring_ch1, kRingSize, int16_t{0});
    s.read_pos = 0;
    s.write_pos = kBlockSize;
    s.fill = 0;
}

void NRSS_StreamBlock(NrssStreamState& s, NrssState& suppressor, int16_t* ch0, int16_t* ch1,
                      int32_t n) {
    store(s.ring_ch0, s.write_pos, ch0, n);
    if (s.two_channel == 1) {
        store(s.ring_ch1, s.write_pos, ch1, n);
    }
    s.write_pos = advance(s.write_pos, n);
    s.fill += n;

    // A block is always one half of the ring, so it is cleaned in its place there.
    if (s.fill >= kBlockSize) {
        s.fill -= kBlockSize;
        const int32_t start = s.write_pos < kBlockSize ? kBlockSize : 0;
        int16_t* const block0 = s.ring_ch0 + start;
        NRSS_Nonintlvd(suppressor, block0, s.two_channel == 1 ? s.ring_ch1 + start : block0,
                       kBlockSize);
    }

    hand_back(s.ring_ch0, s.read_pos, ch0, n);
    if (s.two_channel == 1) {
        hand_back(s.ring_ch1, s.read_pos, ch1, n);
    }
    s.read_pos = advance(s.read_pos, n);
}

void NRSS_Buffered(NrssStreamState& s, NrssState& suppressor, int16_t* ch0, int16_t* ch1, int n) {
    s.two_channel = ch0 != ch1 ? 1 : 0;
    while (n > 0) {
        const int step = std::min(n, static_cast<int>(kBlockSize));
        NRSS_StreamBlock(s, suppressor, ch0, ch1, step);
        ch0 += step;
        ch1 += step;
        n -= step;
    }
}

}  // namespace korvane
