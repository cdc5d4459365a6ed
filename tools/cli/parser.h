/** The options of each command: how they are spelled, what they take, and what is said about them. */
#ifndef KORVANE_TOOLS_CLI_PARSER_H
#define KORVANE_TOOLS_CLI_PARSER_H

#include <string>
#include <vector>

#include "tools/cli/options.h"

namespace korvane::tool {

/** Stores into `options` what the words behind the command say, each by itself. Returns whether one of
 * them is --raw. Throws std::invalid_argument. */
bool parse_words(Options& options, Command command, const std::vector<std::string>& words);

}  // namespace korvane::tool

#endif
