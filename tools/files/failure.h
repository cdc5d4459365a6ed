/** What goes wrong with a file, and its name. The tool reports it as one line and exits with 1. */
#ifndef KORVANE_TOOLS_FILES_FAILURE_H
#define KORVANE_TOOLS_FILES_FAILURE_H

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <string>

namespace korvane::tool {

struct Failure : std::runtime_error {
    /** Of one that has been told, as it was. */
    explicit Failure(const std::string& message) : std::runtime_error(message) {}
    Failure(const std::string& file, const std::string& reason)
        : std::runtime_error(one_line(file) + ": " + one_line(reason)) {}

  private:
    /** Control characters, a newline in a file's name above all, would break the message up. */
    static std::string one_line(std::string text) {
        std::replace_if(
            text.begin(), text.end(), [](unsigned char c) { return std::iscntrl(c) != 0; }, '?');
        return text;
    }
};

/** Whoever reads standard output wants no more, as `head` does: nothing that has to be told. */
struct ReaderGone : Failure {
    ReaderGone() : Failure("standard output", "nobody reads it any more") {}
};

/** The user has ended a stream before it could be told what it is. */
struct Interrupted : Failure {
    explicit Interrupted(const std::string& file) : Failure(file, "interrupted") {}
};

}  // namespace korvane::tool

#endif
