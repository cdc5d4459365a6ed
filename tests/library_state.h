/** The library's static state as a whole: saved, put back, forgotten, compared. */
#ifndef KORVANE_TESTS_LIBRARY_STATE_H
#define KORVANE_TESTS_LIBRARY_STATE_H

#include <cstdint>
#include <string>

#include "detector/detector.h"
#include "korvane_nrss.h"

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

/** Gives all that one call of the pipeline leaves to the next, the same for every instruction set, to
 * add(values, count). */
template <class Add>
void add_pipeline_state(const NrssState& s, const Add& add) {
    for (const auto& memories : {s.frames, s.high_frames}) {
        for (int channel = 0; channel < 2; ++channel) {
            add(memories[channel].last_hop, kHopSize);
            add(memories[channel].tail, kHopSize);
        }
    }
    for (const auto* memory :
         {s.split_state_ch0, s.split_state_ch1, s.merge_state_ch0, s.merge_state_ch1}) {
        add(memory, kBranchState);
    }
    for (const auto& row : s.min_win) {
        add(row, kGains);
    }
    add(s.gain, kGains);
    for (const auto* values : {s.psd_slow, s.psd_fast, s.osub}) {
        add(values, kGains);
    }
    const int32_t counts[] = {s.subwin_count, s.frame_count, s.noise_ready, s.min_win_row};
    add(counts, 4);
}

}  // namespace korvane::test

#endif
