/**
 * Block streaming: a ring of two blocks per channel turns calls of any length into whole blocks for
 * the block pipeline and hands the cleaned samples back one block later; and the entry points by
 * sample layout. korvane_nrss.h says what each does.
 */
#ifndef KORVANE_NRSS_STREAM_BLOCK_STREAM_H
#define KORVANE_NRSS_STREAM_BLOCK_STREAM_H

#include <cstdint>

#include "nrss/gain/nrss_state.h"

namespace korvane {

inline constexpr int32_t kBlockSize = 576;            ///< samples per channel in a block
inline constexpr int32_t kRingSize = 2 * kBlockSize;  ///< samples per channel in the ring

/** Of one stream. Once initialised, write_pos = (read_pos + 576) mod 1152 and fill = write_pos mod
 * 576 before and after every call. */
struct NrssStreamState {
    uint16_t two_channel;  ///< 1 where the current call has two distinct channels
    int32_t read_pos;      ///< 0..1151, next sample to hand back
    int32_t write_pos;     ///< 0..1151, next sample to store
    int32_t fill;          ///< 0..575, samples stored since the last whole block
    int16_t ring_ch0[kRingSize];
    int16_t ring_ch1[kRingSize];
};

/** A block of samples of each channel. */
struct Block {
    const int16_t* ch0;
    const int16_t* ch1;
};
/** The block that was cleaned last, before any of it is handed back. */
inline Block cleaned_block(const NrssStreamState& s) {
    return {s.ring_ch0 + s.read_pos, s.ring_ch1 + s.read_pos};
}

/** What Tolu_NRSS_BufInit does. */
void NRSS_BufInit(NrssStreamState& s);

/**
 * One step of the ring: stores n samples, cleans a block if one is now complete, hands n samples
 * back.
 *
 * @param s           the ring, initialised
 * @param suppressor  cleans the blocks
 * @param ch0         [0..n-1] int16 samples, overwritten
 * @param ch1         [0..n-1] int16 samples, overwritten; not touched where two_channel is 0
 * @param n           1..576
 */
void NRSS_StreamBlock(NrssStreamState& s, NrssState& suppressor, int16_t* ch0, int16_t* ch1,
                      int32_t n);

/** What Tolu_NRSS_Buffered does, on one stream. */
void NRSS_Buffered(NrssStreamState& s, NrssState& suppressor, int16_t* ch0, int16_t* ch1, int n);

/** What Tolu_NRSS_EXE does, on one stream. Scratch on the stack: 2.3 kB in mode 2. */
void NRSS_EXE(NrssStreamState& s, NrssState& suppressor, int16_t* samples, int n, int mode);

/** Tolu_NRSS_Interleave. */
void NRSS_Interleave(int16_t* dst, const int16_t* ch0, const int16_t* ch1, int n);

}  // namespace korvane

#endif
