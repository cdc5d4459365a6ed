/** What the commands on one recording have in common. */
#ifndef KORVANE_TOOLS_ONE_RECORDING_H
#define KORVANE_TOOLS_ONE_RECORDING_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/batch/finding.h"
#include "tools/cli/options.h"
#include "tools/cli/progress.h"
#include "tools/results/detection.h"

namespace korvane::tool {

/** Whether each result is wanted when it is certain, not at the end: standard input, pipes, devices. */
bool is_live_input(const std::string& name);

/** Where `name` is a stream, an interruption is its end: what came before it counts. */
void prepare_for_interruption(const std::string& name);

/** 0, or that of an interruption which ended the stream. */
int status_after_stream();

/** The exit status when everything is written; a fault of the input is told. */
int status_after(const std::string& fault);

/** A bar for one input. A stream has no end to measure against. */
ProgressBar bar_for(const Options& options, const std::string& input, bool prints_meanwhile);
Tick drawing(ProgressBar& bar);

/** For the cleaned samples of detectors of one channel each: passes them on together. */
std::vector<Listener> interleaving(
    int channels, const std::function<void(const int16_t* samples, int64_t n)>& next);

}  // namespace korvane::tool

#endif
