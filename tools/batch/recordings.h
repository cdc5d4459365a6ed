/** Which recordings a command line means. */
#ifndef KORVANE_TOOLS_BATCH_RECORDINGS_H
#define KORVANE_TOOLS_BATCH_RECORDINGS_H

#include <string>
#include <vector>

#include "tools/cli/options.h"

namespace korvane::tool {

/** Those named on the command line, then those in the file of names; with --recursive those in folders, without
 * hidden ones, in the order of their names. Throws a Failure. */
std::vector<std::string> recordings(const Options& options);

}  // namespace korvane::tool

#endif
