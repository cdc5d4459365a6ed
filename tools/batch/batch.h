/** Many recordings: worker processes, results in order, runs that can be continued. */
#ifndef KORVANE_TOOLS_BATCH_BATCH_H
#define KORVANE_TOOLS_BATCH_BATCH_H

#include <string>
#include <vector>

#include "tools/cli/options.h"

namespace korvane::tool {

/** Whether results go into files of their own in the folder `output`: it ends with a slash or is
 * one. */
bool is_folder(const std::string& output);

/** `detect` for these. Failures of single recordings go to standard error. Returns the exit status;
 * throws a Failure where nothing can go on, a UsageError where the output cannot hold it. */
int run_batch(const Options& options, const std::vector<std::string>& names);

}  // namespace korvane::tool

#endif
