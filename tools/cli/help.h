/** Help texts and the manual page, from the commands' texts and parsers. */
#ifndef KORVANE_TOOLS_CLI_HELP_H
#define KORVANE_TOOLS_CLI_HELP_H

#include <string>

#include "tools/cli/options.h"

namespace korvane::tool {

std::string general_help();
std::string command_help(Command command);
/** A line for standard error, after what is wrong. */
std::string usage_line(Command command);

/** In roff. */
std::string manual_page();

}  // namespace korvane::tool

#endif
