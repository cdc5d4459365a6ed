/** The library's static state as a whole: saved, put back, forgotten, compared. */
#ifndef KORVANE_TESTS_LIBRARY_STATE_H
#define KORVANE_TESTS_LIBRARY_STATE_H

#include <cstdint>
#include <string>
#include <utility>

#include "detector/detector.h"
#include "korvane_nrss.h"
#include "nrss/gain/window_table.h"

namespace korvane {

// The parts of the stream behind the exported calls.
inline NrssState& nrss_state = exported_stream.suppressor;
inline NrssStreamState& nrss_stream_state = exported_stream.stream;
inline VorState& vor_state = exported_stream.level;

}  // namespace korvane

namespace korvane::test {

/** All static state that outlives a call, but for the transforms' own; zero as when the library is
 * loaded. */
struct LibraryState {
    Detector stream{};
    const int16_t* over_subtraction = nullptr;

    static LibraryState take() { return {exported_stream, osf}; }
    void restore() const {
        exported_stream = stream;
        osf = over_subtraction;
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
inline std::string library_state() { return bytes_of(exported_stream); }

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
          std::pair{s.ch0_high_a, s.ch0_high_b}, std::pair{s.ch1_high_a, s.ch1_high_b}}) {
        add(a, kHopSize);
        add(b + kHopSize, kHopSize);
    }
    for (const auto* memory :
         {s.split_state_ch0, s.split_state_ch1, s.merge_state_ch0, s.merge_state_ch1}) {
        add(memory, kBranchState);
    }
    add(&s.min_win_row, 1);
    for (const auto& row : s.min_win) {
        add(row, kGains);
    }
    add(s.gain, kGains);
    add(s.psd_slow, kGains);
    add(s.psd_fast, kGains);
    add(s.osub, kGains);
}

}  // namespace korvane::test

#endif
