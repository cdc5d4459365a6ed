/**
 * The stages in the code of each instruction set. They are templates over its vectors, which only code
 * built for the same set may instantiate.
 */
#ifndef KORVANE_BENCH_STAGE_FORMS_H
#define KORVANE_BENCH_STAGE_FORMS_H

#include <cstdint>
#include <vector>

namespace korvane {

struct NrssState;

inline constexpr int kStageBlock = 576;  ///< samples a channel in a call of the filter bank

struct StageForms {
    const char* set;
    void (*real_fft288)(int32_t* out, const int32_t* in);
    void (*real_ifft288)(int32_t* out, const int32_t* in);
    void (*process_blocks)(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n);

    int batch_frames;         ///< frames that one call of a transform takes
    void (*forward_batch)();  ///< on numbers of its own; no number changes the time
    void (*inverse_batch)();

    /** @param power  [0..143] as NRSS_SpectralGain takes it */
    void (*gain_engine)(NrssState& s, const int32_t* power);

    /** Split then merge of one block. @param x  [channel] [0..575] int16 samples, overwritten */
    void (*filter_bank)(NrssState& s, int16_t* const* x, int channels);

    /** Window then overlap-add of a frame of 288 values. */
    void (*framing)();
};

/** Those of this build, each of which adds itself. */
std::vector<StageForms>& stage_forms();

}  // namespace korvane

#endif
