/** What the sources that read samples themselves have in common. */
#ifndef KORVANE_TOOLS_AUDIO_BUFFERED_SOURCE_H
#define KORVANE_TOOLS_AUDIO_BUFFERED_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "tools/audio/audio_source.h"
#include "tools/audio/input_descriptor.h"

namespace korvane::tool {

/** Hands out what comes in pieces of any size. */
class BufferedSource : public AudioSource {
  public:
    const SourceInfo& info() const override { return info_; }
    int64_t read(int16_t* out, int64_t n) override;

  protected:
    BufferedSource() = default;

    SourceInfo info_;
    std::vector<int16_t> piece_;  // interleaved
    bool ended_ = false;          // there will be no more pieces
    std::exception_ptr fault_;    // thrown once all pieces are handed out

  private:
    /** Replaces the piece, which has been handed out. `wanted` sample frames are needed now. */
    virtual void refill(int64_t wanted) = 0;

    std::size_t used_ = 0;  // of the piece handed out
};

/** Reads a file in large pieces; of a live input what is asked for and no more. */
class InputSource : public BufferedSource {
  protected:
    InputSource(const std::string& name, OriginalListener original);

    InputDescriptor input_;
    OriginalListener original_;

  private:
    /** The next `frames` sample frames; fewer at the end and before a fault. */
    virtual int64_t read_piece(int16_t* piece, int64_t frames) = 0;
    /** After the last piece: throws a Failure if something is wrong with the input. */
    virtual void check_end(int64_t frames_read) = 0;

    void refill(int64_t wanted) override;

    int64_t frames_read_ = 0;
};

}  // namespace korvane::tool

#endif
