/**
 * The stages of the vector code, one set of ways in for each instruction set; they live in
 * templates that only code built for the same set may instantiate.
 */
#ifndef KORVANE_BENCH_STAGE_FORMS_H
#define KORVANE_BENCH_STAGE_FORMS_H

#include <cstdint>

namespace korvane {

inline constexpr int kStageBlock = 576;  ///< samples a channel in a call of the filter bank

struct StageForms {
    int batch_frames;         ///< frames that one call of a transform takes
    void (*forward_batch)();  ///< on numbers of its own; no number changes the time
    void (*inverse_batch)();

    /** @param power  [0..143] as run_gain_engine takes it */
    void (*gain_engine)(const int32_t* power);

    /** Split then merge of one block. @param x  [channel] [0..575] int16 samples, overwritten */
    void (*filter_bank_mono)(int16_t* const* x);
    void (*filter_bank_stereo)(int16_t* const* x);
};

namespace sse2 {
extern const StageForms stage_forms;
}
namespace avx2 {
extern const StageForms stage_forms;
}
namespace neon {
extern const StageForms stage_forms;
}

}  // namespace korvane

#endif
