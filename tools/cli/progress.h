/** A bar on standard error that shows how far the work is, how fast, and how long it will take. */
#ifndef KORVANE_TOOLS_CLI_PROGRESS_H
#define KORVANE_TOOLS_CLI_PROGRESS_H

#include <chrono>
#include <string>

#include "tools/cli/options.h"

namespace korvane::tool {

/** One line of at most `width` columns.
 *
 * @param fraction  0..1, of the work; negative where that is not known
 * @param times     seconds of sound per second of work
 * @param seconds   of work so far
 * @param note      what else there is to say
 * @param colour    whether the bar is coloured
 */
std::string progress_line(int width, double fraction, double times, double seconds,
                          const std::string& note, bool colour);

/** A line on standard error about the input `name`, unless --quiet or --check keeps it back or there is
 * nothing to say. */
void warn(const Options& options, const std::string& name, const std::string& what);

class ProgressBar {
  public:
    /** @param quiet  there is nothing to show, or no place for it: only `always` draws then */
    ProgressBar(Progress when, bool quiet);
    ~ProgressBar() { wipe(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    bool shown() const { return shown_; }
    /** Draws, but not more often than ten times a second, nor at once where it may be over soon. */
    void update(double fraction, double sound_seconds, const std::string& note);
    /** Takes the bar off the line, for something else or for good. */
    void wipe();

  private:
    using Clock = std::chrono::steady_clock;
    bool shown_;
    bool colour_;
    bool on_line_ = false;
    Clock::time_point start_ = Clock::now();
    Clock::time_point next_;
};

}  // namespace korvane::tool

#endif
