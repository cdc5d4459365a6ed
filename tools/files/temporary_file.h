/**
 * Files that appear under their names only when they are whole.
 *
 * A file is written under a temporary name in the same folder and renamed at the end. Until then a
 * file that has the name already stays as it is. Whatever ends the work early leaves no temporary
 * file: an exception through the destructor, a signal through the functions below.
 */
#ifndef KORVANE_TOOLS_FILES_TEMPORARY_FILE_H
#define KORVANE_TOOLS_FILES_TEMPORARY_FILE_H

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace korvane::tool {

/** Removes the temporary files that this process has open, not those of a process that it was
 * forked from. Async-signal-safe; for a process that is about to end. */
void remove_temporary_files();

/** Makes SIGHUP, SIGINT, SIGQUIT and SIGTERM remove the temporary files before they end the process;
 * what is ignored, as under nohup, stays ignored. Without it a signal leaves them behind. */
void remove_temporary_files_on_signals();

class TemporaryFile {
  public:
    /**
     * Creates it beside `path`, whose symbolic links are followed. What is at `path` must be a
     * regular file that may be written, or nothing; the permission bits of that file are taken over.
     * Throws a Failure that speaks of `path`, as commit does.
     */
    explicit TemporaryFile(const std::string& path);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int descriptor() const { return descriptor_; }
    /** Nothing more will be written; many such files take no room among the open ones. */
    void close_descriptor();
    /** Sees to it that all of it is on the disk and gives the file its name. */
    void commit();
    /** The same of several files, waiting for the disk once, not once for each. */
    static void commit_all(const std::vector<std::unique_ptr<TemporaryFile>>& files);

  private:
    friend void remove_temporary_files();

    void create();
    void leave();
    void rename();
    std::string folder() const;
    [[noreturn]] void fail() const;

    std::string path_;    // as the user gave it
    std::string target_;  // with symbolic links resolved
    std::string name_;
    int descriptor_ = -1;
    pid_t owner_ = 0;
    TemporaryFile* next_ = nullptr;  // of those that signals remove

    static std::atomic<TemporaryFile*> first_;  // changed only while the signals are blocked
};

}  // namespace korvane::tool

#endif
