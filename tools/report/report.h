/** One self-contained page about one recording. */
#ifndef KORVANE_TOOLS_REPORT_REPORT_H
#define KORVANE_TOOLS_REPORT_REPORT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/audio/embedded_audio.h"
#include "tools/results/detection.h"
#include "tools/results/result_writer.h"

namespace korvane::tool {

/**
 * What the page shows; collected frame by frame.
 *
 * Long recordings are shown in less detail, so the charts do not grow without end. Both versions' audio comes with them
 * where it takes at most 64 MiB: as MP3 that is four and a half hours of one channel. Nothing in the page is fetched from
 * anywhere.
 */
class Report {
  public:
    /** Whether the tool was built with the page. If not, page() throws a std::runtime_error. */
    static bool available();

    Report(const ResultHeader& header, EmbeddedAudio audio);
    ~Report();
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    // As a Listener is told it.
    void add_input(const int16_t* samples, int64_t n);
    void add(const Frame& frame);
    void add_cleaned(const int16_t* samples, int64_t n);

    /** The page: HTML, complete in itself. Once; nothing may be added after. */
    std::string page(const StreamTotals& totals, const std::vector<segments::Segment>& list);

    /** Why the audio that was wanted is left out; empty where it is not. To be asked behind page(). */
    std::string missing_audio() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace korvane::tool

#endif
