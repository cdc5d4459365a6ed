/** Samples without a header. */
#ifndef KORVANE_TOOLS_AUDIO_RAW_SOURCE_H
#define KORVANE_TOOLS_AUDIO_RAW_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/audio/buffered_source.h"

namespace korvane::tool {

/** With all of its channels, interleaved whatever the layout. */
class RawSource : public InputSource {
  public:
    RawSource(const std::string& name, const RawFormat& format, OriginalListener original = {});

  private:
    int64_t read_piece(int16_t* piece, int64_t frames) override;
    int64_t read_interleaved(int64_t frames);
    int64_t read_planar(int64_t frames);
    void check_end(int64_t frames_read) override;
    void decode(const uint8_t* bytes, std::size_t to, std::size_t count, std::size_t step);

    RawFormat format_;
    std::size_t sample_bytes_;
    int16_t* piece_out_ = nullptr;  // where read_piece writes
    std::vector<int32_t> wide_;  // the same samples as they came in, where 16 bits do not hold them
    std::vector<double> real_;
    int64_t position_ = 0;       // frames read
    std::size_t left_over_ = 0;  // bytes behind the last whole sample frame
    std::vector<uint8_t> bytes_;
};

}  // namespace korvane::tool

#endif
