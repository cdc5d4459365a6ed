/** The five commands. */
#ifndef KORVANE_TOOLS_COMMANDS_H
#define KORVANE_TOOLS_COMMANDS_H

#include <functional>
#include <string>

#include "options.h"

namespace korvane::tool {

/** How far the work on an input is: 0..1 or, where that is not known, -1; and the seconds of sound
 * that have gone in. */
using Tick = std::function<void(double fraction, double seconds)>;

/** What `detect` has to say about one input that it has read to its end. */
struct Finding {
    bool speech = false;
    std::string text;  ///< without what stands around the results of a file
};
Finding find_speech(const std::string& name, const Options& options, bool several,
                    const Tick& tick);

/** Does what the options say. Returns the exit status; throws a Failure. */
int run(const Options& options);

}  // namespace korvane::tool

#endif
