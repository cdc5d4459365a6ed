/**
 * The record of finished recordings that a later run continues from.
 *
 * A text file of JSON lines: one that says what it is, then one for each recording with its name,
 * size, time of change, the options, and the result. Where a run was cut off in the middle of a
 * line, that line does not count.
 */
#ifndef KORVANE_TOOLS_BATCH_MANIFEST_H
#define KORVANE_TOOLS_BATCH_MANIFEST_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "tools/batch/finding.h"

namespace korvane::tool {

/** What tells whether a recording is still the same. */
struct FileState {
    int64_t size = 0;
    int64_t changed = 0;  ///< nanoseconds since 1970
    bool operator==(const FileState&) const = default;
};
/** Nothing for what is not a regular file. */
std::optional<FileState> state_of(const std::string& path);

class Manifest {
  public:
    /**
     * Reads the manifest at `path`, or begins one. Only one process may have it at a time. Throws a
     * Failure, as every call does; a file that is no manifest is left as it is.
     *
     * @param options  results that were made with others do not count
     */
    Manifest(const std::string& path, const std::string& options);
    ~Manifest();
    Manifest(const Manifest&) = delete;
    Manifest& operator=(const Manifest&) = delete;

    /** The result noted for this recording as it is now. */
    std::optional<Finding> find(const std::string& name, const FileState& state) const;
    /** Notes a result; on return the line is with the operating system. */
    void add(const std::string& name, const FileState& state, const Finding& finding);

  private:
    struct Entry {
        FileState state;
        Finding finding;
    };
    std::string read_all() const;
    void load(const std::string& text);
    void load_line(const std::string& line, int64_t number);
    void append(const std::string& line);
    [[noreturn]] void fail() const;

    std::string path_;
    std::string options_;
    int descriptor_ = -1;
    std::map<std::string, Entry> entries_;
};

}  // namespace korvane::tool

#endif
