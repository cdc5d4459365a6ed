/** Text to standard output or into a file that appears under its name only when it is whole. */
#ifndef KORVANE_TOOLS_FILES_TEXT_OUTPUT_H
#define KORVANE_TOOLS_FILES_TEXT_OUTPUT_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/files/temporary_file.h"

namespace korvane::tool {

/** Throws a Failure if `output`, as TextOutput takes it, is one of these files ("-": standard input):
 * it would take the place of what is read. */
void check_is_no_input(const std::string& output, const std::vector<std::string>& inputs);

/** Throws a Failure where a file of that name is there. */
void check_is_new(const std::string& output);

class TextOutput {
  public:
    /**
     * @param path  "" and "-": standard output. A device or a pipe is written to directly; any
     *              other file under a temporary name beside it, symbolic links followed
     * Throws a Failure, as every call does.
     */
    explicit TextOutput(const std::string& path);
    /** Without commit nothing stays of a file. */
    ~TextOutput();
    TextOutput(const TextOutput&) = delete;
    TextOutput& operator=(const TextOutput&) = delete;

    void write(std::string_view text);
    /** Hands over what has been written so far. */
    void flush();
    /** Hands it all over; a file is brought to the disk and gets its name. */
    void commit();

  private:
    [[noreturn]] void fail() const;

    std::string name_;  // for messages
    std::unique_ptr<TemporaryFile> file_;
    int descriptor_ = -1;
    std::string pending_;
};

}  // namespace korvane::tool

#endif
