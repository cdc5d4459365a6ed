/** A part of a regular file as libsndfile reads it. */
#ifndef KORVANE_TOOLS_AUDIO_FILE_WINDOW_H
#define KORVANE_TOOLS_AUDIO_FILE_WINDOW_H

#include <sndfile.h>

#include <cstdint>

#include "tools/audio/input_descriptor.h"

namespace korvane::tool {

class FileWindow {
  public:
    /** @param claimed  bytes that it says it has, more or fewer than there are to read */
    FileWindow(InputDescriptor& file, int64_t start, int64_t size, int64_t claimed)
        : file_(&file), start_(start), size_(size), claimed_(claimed) {}
    FileWindow(InputDescriptor& file, int64_t start, int64_t size)
        : FileWindow(file, start, size, size) {}

    /** Opens what is in the window, which must stay where it is meanwhile. Null where libsndfile cannot. */
    SNDFILE* open(SF_INFO& format);

  private:
    static FileWindow& of(void* window) { return *static_cast<FileWindow*>(window); }
    int64_t seek(int64_t offset, int whence);
    int64_t read(void* bytes, int64_t count);

    InputDescriptor* file_;
    int64_t start_;
    int64_t size_;
    int64_t claimed_;
    int64_t at_ = 0;
};

}  // namespace korvane::tool

#endif
