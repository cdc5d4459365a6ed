/** Samples of a whole recording on the disk, in a file without a name. */
#ifndef KORVANE_TOOLS_AUDIO_SAMPLE_SPOOL_H
#define KORVANE_TOOLS_AUDIO_SAMPLE_SPOOL_H

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::tool {

class SampleSpool {
  public:
    /**
     * In `folder`, which must have the room. Throws a Failure, as every call does.
     *
     * @param frame_bytes  of a sample of each channel
     */
    SampleSpool(const std::string& folder, int64_t frame_bytes);
    ~SampleSpool();
    SampleSpool(const SampleSpool&) = delete;
    SampleSpool& operator=(const SampleSpool&) = delete;

    /** n sample frames, interleaved; n may be 0. */
    void append(const void* samples, int64_t n);
    /** n sample frames from `begin` on, all of which have been appended. */
    void read(int64_t begin, void* out, int64_t n) const;
    /** In sample frames. */
    int64_t length() const;

  private:
    void flush();

    std::string folder_;
    int64_t frame_bytes_;
    int descriptor_ = -1;
    int64_t flushed_ = 0;  // bytes on the disk
    std::vector<char> pending_;
};

}  // namespace korvane::tool

#endif
