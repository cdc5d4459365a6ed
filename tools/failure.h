/** What goes wrong with a file, and its name. The tool reports it as one line and exits with 1. */
#ifndef KORVANE_TOOLS_FAILURE_H
#define KORVANE_TOOLS_FAILURE_H

#include <stdexcept>
#include <string>

namespace korvane::tool {

struct Failure : std::runtime_error {
    Failure(const std::string& file, const std::string& reason)
        : std::runtime_error(file + ": " + reason) {}
};

}  // namespace korvane::tool

#endif
