/** The tool's commands. */
#ifndef KORVANE_TOOLS_COMMANDS_H
#define KORVANE_TOOLS_COMMANDS_H

#include "tools/cli/options.h"

namespace korvane::tool {

/** Does what the options say. Returns the exit status; throws a Failure. */
int run(const Options& options);

}  // namespace korvane::tool

#endif
