/** One self-contained page about one recording. */
#ifndef KORVANE_TOOLS_REPORT_REPORT_H
#define KORVANE_TOOLS_REPORT_REPORT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/results/detection.h"
#include "tools/results/result_writer.h"

namespace korvane::tool {

/**
 * What the page shows; collected frame by frame.
 *
 * Long recordings are shown in less detail, so neither it nor the page grows without end: of an hour
 * at 16 kHz it takes 230 MB and the page 20 MB, which is near the most. Recordings of up to 30
 * minutes bring their audio too, as FLAC, where both versions together take at most 64 MiB. Nothing
 * in the page is fetched from anywhere.
 */
class Report {
  public:
    /** Whether the tool was built with the page. If not, page() throws a std::runtime_error. */
    static bool available();

    explicit Report(const ResultHeader& header);
    ~Report();
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    // As a Listener is told it.
    void add_input(const int16_t* samples, int64_t n);
    void add(const Frame& frame);
    void add_cleaned(const int16_t* samples, int64_t n);

    /** The page: HTML, complete in itself. Once; nothing may be added after. */
    std::string page(const StreamTotals& totals, const std::vector<segments::Segment>& list);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace korvane::tool

#endif
