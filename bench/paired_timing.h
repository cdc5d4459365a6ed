/**
 * How the measurements are taken: processor time of this thread, on one processor, two candidates
 * in alternation, so that a change of clock frequency or a noisy neighbour meets both.
 */
#ifndef KORVANE_BENCH_PAIRED_TIMING_H
#define KORVANE_BENCH_PAIRED_TIMING_H

#include <functional>
#include <string>
#include <vector>

namespace korvane::bench {

inline constexpr int kRounds = 11;
inline constexpr double kRoundSeconds = 0.025;  ///< least processor time of a candidate in a round

struct Summary {
    double median;
    double min;
    double max;
};

Summary summarise(std::vector<double> values);

/** Pins this process and its children to the last processor it may use; returns its number. */
int pin_to_one_processor();

/** Processor time of this thread so far. */
double thread_seconds();

/** One run of work; returns the processor time it took, in seconds. */
using TimedRun = std::function<double()>;

/** Makes a timed run of something that runs in this thread. */
TimedRun in_this_thread(std::function<void()> work);

/** A program as a process of its own: user and system time of it. What it prints is dropped. Throws
 * std::runtime_error where it cannot be started or fails. */
TimedRun as_process(std::vector<std::string> command);

struct PairedTimes {
    Summary first;   ///< seconds per run
    Summary second;  ///< seconds per run
    Summary ratio;   ///< second / first, of each round
};

/** kRounds rounds; in each, both candidates run again and again for kRoundSeconds, the one that
 * went last in the round before going first. */
PairedTimes alternate(const TimedRun& first, const TimedRun& second);

/** Rounds of one candidate alone: seconds per run. */
Summary repeat(const TimedRun& run);

}  // namespace korvane::bench

#endif
