/** The user's configuration file: options that those of the command line override. */
#ifndef KORVANE_TOOLS_CLI_CONFIGURATION_H
#define KORVANE_TOOLS_CLI_CONFIGURATION_H

#include <string>
#include <vector>

#include "tools/cli/options.h"

namespace korvane::tool {

/** $XDG_CONFIG_HOME/korvane-vad/config, else ~/.config/korvane-vad/config; empty without a home. */
std::string configuration_path();

/**
 * What the file at `path` says for a command, as words of a command line; nothing where there is no
 * file. A line is `option = value`, or the name of a flag alone; # begins a comment. Behind [COMMAND]
 * lines are for that command, before that for every command that has such an option. Throws a Failure
 * that names the line.
 */
std::vector<std::string> configured_words(const std::string& path, Command command);

}  // namespace korvane::tool

#endif
