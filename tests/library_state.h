/** The library's static state as a whole: saved, put back, forgotten, compared. */
#ifndef KORVANE_TESTS_LIBRARY_STATE_H
#define KORVANE_TESTS_LIBRARY_STATE_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

#include "detector/level_decision.h"
#include "korvane_nrss.h"
#include "nrss/gain/nrss_state.h"
#include "nrss/pipeline/block_pipeline.h"
#include "nrss/stream/block_stream.h"

namespace korvane::test {

/** All static state that outlives a call, but for the transforms' own; zero as when the library is
 * loaded. */
struct LibraryState {
    VorState vor{};
    NrssStreamState stream{};
    NrssState nrss{};
    const int16_t* over_subtraction = nullptr;
    int32_t high[4][kFrameWords]{};

    static LibraryState take() {
        LibraryState s{vor_state, nrss_stream_state, nrss_state, osf, {}};
        const int32_t* const frames[4] = {ch0_high_a, ch0_high_b, ch1_high_a, ch1_high_b};
        for (int i = 0; i < 4; ++i) {
            std::copy_n(frames[i], kFrameWords, s.high[i]);
        }
        return s;
    }
    void restore() const {
        vor_state = vor;
        nrss_stream_state = stream;
        nrss_state = nrss;
        osf = over_subtraction;
        int32_t* const frames[4] = {ch0_high_a, ch0_high_b, ch1_high_a, ch1_high_b};
        for (int i = 0; i < 4; ++i) {
            std::copy_n(high[i], kFrameWords, frames[i]);
        }
    }
};

/** All static state as it is when the library is loaded. */
inline void forget_everything() {
    // Static, so that what lies between its members is zero, too.
    static const LibraryState fresh{};
    fresh.restore();
}

template <class T>
std::string bytes_of(const T& object) {
    return {reinterpret_cast<const char*>(&object), sizeof object};
}

/** The bytes of all static state that outlives a call. */
inline std::string library_state() {
    return bytes_of(vor_state) + bytes_of(nrss_stream_state) + bytes_of(nrss_state) +
           bytes_of(ch0_high_a) + bytes_of(ch0_high_b) + bytes_of(ch1_high_a) +
           bytes_of(ch1_high_b);
}

/** Gives all that one call of the pipeline leaves to the next, the same in every form of it, to
 * add(values, count). */
template <class Add>
void add_pipeline_state(const Add& add) {
    const NrssState& s = nrss_state;
    add(&s.subwin_count, 1);
    add(&s.frame_count, 1);
    add(&s.noise_ready, 1);
    for (const auto& [a, b] :
         {std::pair{s.ch0_frame_a, s.ch0_frame_b}, std::pair{s.ch1_frame_a, s.ch1_frame_b},
          std::pair<const int32_t*, const int32_t*>{ch0_high_a, ch0_high_b},
          std::pair<const int32_t*, const int32_t*>{ch1_high_a, ch1_high_b}}) {
        add(a, kHopSize);
        add(b + kHopSize, kHopSize);
    }
    for (const auto* memory :
         {s.split_state_ch0, s.split_state_ch1, s.merge_state_ch0, s.merge_state_ch1}) {
        add(memory, kBranchState);
    }
    for (const int32_t* const row : s.min_win_row) {
        if (row != nullptr) {  // before the first initialisation
            add(row, kGains);
        }
    }
    add(s.gain, kGains);
    add(s.psd_slow, kGains);
    add(s.psd_fast, kGains);
    add(s.osub, kGains);
}

}  // namespace korvane::test

#endif
