/** The command `split`. */
#ifndef KORVANE_TOOLS_SPLIT_H
#define KORVANE_TOOLS_SPLIT_H

#include "tools/cli/options.h"

namespace korvane::tool {

/** Returns the exit status; throws a Failure. */
int run_split(const Options& options);

}  // namespace korvane::tool

#endif
