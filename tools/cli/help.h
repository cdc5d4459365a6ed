/** Help texts, the manual page and completions for shells, all from the commands' texts and
 * parsers. */
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
std::string bash_completions();
std::string zsh_completions();
std::string fish_completions();
/** For bash, zsh or fish; a UsageError otherwise. */
std::string completions(const std::string& shell);

}  // namespace korvane::tool

#endif
