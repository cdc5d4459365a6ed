/** A file as a stream, for decoders that take what a file's header promises for true, but read a stream to its end. */
#ifndef KORVANE_TOOLS_AUDIO_FILE_FEED_H
#define KORVANE_TOOLS_AUDIO_FILE_FEED_H

#include <cstdint>
#include <thread>

#include "tools/audio/input_descriptor.h"

namespace korvane::tool {

class FileFeed {
  public:
    /** Begins to feed what a regular file holds from an offset on, in bytes. The file must outlive the feed. Nobody else may read it meanwhile.
     * Throws a Failure. */
    FileFeed(InputDescriptor& file, int64_t offset);
    ~FileFeed();
    FileFeed(const FileFeed&) = delete;
    FileFeed& operator=(const FileFeed&) = delete;

    /** Where to read. */
    int get() const { return ends_[0]; }
    /** Lets go of what has not been read. After that the file may be asked whether reading it has failed. */
    void end();

  private:
    void feed(InputDescriptor& file, int64_t offset) const;

    int ends_[2] = {-1, -1};
    std::thread feeder_;
};

}  // namespace korvane::tool

#endif
