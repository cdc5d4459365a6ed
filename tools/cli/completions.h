/** Completions for shells, from the commands' texts and parsers. */
#ifndef KORVANE_TOOLS_CLI_COMPLETIONS_H
#define KORVANE_TOOLS_CLI_COMPLETIONS_H

#include <string>

#include "tools/cli/options.h"

namespace korvane::tool {

std::string bash_completions();
std::string zsh_completions();
std::string fish_completions();
/** For bash, zsh or fish; a UsageError otherwise. */
std::string completions(const std::string& shell);

}  // namespace korvane::tool

#endif
