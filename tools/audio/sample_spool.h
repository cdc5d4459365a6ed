/** Samples of a whole recording on the disk, in a file without a name. */
#ifndef KORVANE_TOOLS_AUDIO_SAMPLE_SPOOL_H
#define KORVANE_TOOLS_AUDIO_SAMPLE_SPOOL_H

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::tool {

class SampleSpool {
  public:
    /** In `folder`, which must have the room. Throws a Failure, as every call does. */
    SampleSpool(const std::string& folder, int channels);
    ~SampleSpool();
    SampleSpool(const SampleSpool&) = delete;
    SampleSpool& operator=(const SampleSpool&) = delete;

    /** n sample frames, interleaved; n may be 0. */
    void append(const int16_t* samples, int64_t n);
    /** n sample frames from `begin` on, all of which have been appended. */
    void read(int64_t begin, int16_t* out, int64_t n) const;

  private:
    void flush();

    std::string folder_;
    std::size_t channels_;
    int descriptor_ = -1;
    int64_t flushed_ = 0;  // values on the disk
    std::vector<int16_t> pending_;
};

}  // namespace korvane::tool

#endif
