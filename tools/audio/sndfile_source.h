/** A recording, or a stream of one, in any format that libsndfile knows. */
#ifndef KORVANE_TOOLS_AUDIO_SNDFILE_SOURCE_H
#define KORVANE_TOOLS_AUDIO_SNDFILE_SOURCE_H

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/audio/buffered_source.h"
#include "tools/audio/decoder_messages.h"
#include "tools/audio/file_window.h"
#include "tools/audio/sample_conversion.h"

namespace korvane::tool {

struct CloseSndfile {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, CloseSndfile>;

/** A message of libsndfile as one line without its "Error : " and full stop. */
std::string sndfile_reason(const std::string& message);

/** As the file has it: any number of channels, any rate. */
class SndfileSource : public InputSource {
  public:
    explicit SndfileSource(const std::string& name, OriginalListener original = {});

  private:
    void open();
    void open_file();
    bool open_as_promised();
    void open_to_its_end();
    void open_chain();
    bool open_window(const FileWindow& window, const SF_INFO& format);
    FileWindow link_window();
    bool open_next_link();
    bool open_mpeg(int64_t most_before);
    bool length_known() const;
    int64_t read_piece(int16_t* piece, int64_t frames) override;
    bool goes_on_after_declared_end() const;
    int64_t read_converted(int16_t* piece, int64_t frames);
    void check_end(int64_t frames_read) override;

    bool is_named_;  // a regular file, which may be opened again by its name
    SF_INFO format_{};
    DecoderMessages messages_;
    std::optional<FileWindow> window_;  // where libsndfile reads a part of the file
    std::vector<int64_t> links_;  // of Ogg, where they begin in the file, and where the last ends
    std::size_t link_ = 0;
    bool is_cut_at_fault_ = false;  // nothing behind a damaged page is read
    int64_t unfinished_link_ = 0;   // counted from 1
    std::string fault_of_link_;     // of the one that is read, counted from 0
    SndfileHandle file_;
    int64_t given_ = 0;  // frames of file_
    SampleKind kind_ = SampleKind::kShort;
    std::vector<int32_t> wide_;  // a piece before its conversion
    std::vector<double> real_;
};

}  // namespace korvane::tool

#endif
