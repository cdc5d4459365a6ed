/**
 * A 16-bit WAV file that appears under its name only when it is whole.
 *
 * It is written under a temporary name in the same folder and renamed at the end. Until then a file
 * that has the name already stays as it is. Whatever ends the work early, an error or one of the
 * signals SIGHUP, SIGINT, SIGQUIT and SIGTERM, removes the temporary file.
 */
#ifndef KORVANE_TOOLS_CLEANED_FILE_H
#define KORVANE_TOOLS_CLEANED_FILE_H

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace korvane::tool {

/** A new file in a folder, removed with the object unless it was renamed. One at a time: the signal
 * handler knows one name. */
class TemporaryFile {
  public:
    /** Beside `target`. A Failure that this throws speaks of `target`. */
    explicit TemporaryFile(const std::string& target);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int descriptor() const { return descriptor_; }
    /** Gives the file its final name; false with errno set where that fails. */
    bool rename_to(const std::string& target);

  private:
    std::string name_;
    int descriptor_ = -1;
};

class CleanedFile {
  public:
    /** Creates the temporary file. A symbolic link at `path` is followed. Throws a Failure, as
     * every other call does: what is there must be a regular file that may be written, or nothing.
     */
    CleanedFile(const std::string& path, int rate, int channels);

    /** Appends n sample frames, interleaved. */
    void write(const int16_t* samples, int64_t n);

    /** Writes what is left, completes the header and sees to it that all of it is on the disk. */
    void finish();

    /** After finish: gives the file its name. */
    void commit();

  private:
    struct Close {
        void operator()(SNDFILE* file) const { sf_close(file); }
    };

    void flush();
    [[noreturn]] void fail_with_errno() const;

    std::string path_;    // as the user gave it
    std::string target_;  // with symbolic links resolved
    int channels_;
    std::unique_ptr<TemporaryFile> temporary_;
    std::unique_ptr<SNDFILE, Close> file_;
    int64_t samples_written_ = 0;
    std::vector<int16_t> pending_;
};

}  // namespace korvane::tool

#endif
