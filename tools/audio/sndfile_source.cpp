#include "tools/audio/sndfile_source.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

// Programs that write to a pipe cannot know the length and put a huge one into the header. What is
// declared from here on (in bytes) is such a placeholder.
constexpr int64_t kUnknownBytes = 0x7F000000;

/** What libsndfile reads without going back: WAV, AIFF, AU and Ogg, by their first four bytes. */
constexpr std::array<uint32_t, 6> kStreamed = {
    0x52494646, 0x52494658, 0x464F524D,   // RIFF RIFX FORM
    0x2E736E64, 0x646E732E, 0x4F676753};  // .snd dns. OggS

// libsndfile quietly shortens the length when a file is smaller than its header says, and accepts
// an Ogg stream without its end. Only its log tells, in lines like "data : 137090 (should be
// 59956)". Empty when nothing is missing.
std::string loss_in_log(const std::string& log, int format) {
    const bool wave64 = (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_W64;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        if (line.find("without an End-Of-Stream") != std::string::npos) {
            return "truncated: the stream's last page is missing";
        }
        std::istringstream words(line);
        std::string name;
        std::string word;
        while (words >> word && word != ":") {
            name += word;
        }
        int64_t declared = 0;
        int64_t present = 0;
        const bool sound_chunk =
            name == "data" || name == "SSND" || name == "DataSize" || (wave64 && name == "riff");
        if (sound_chunk && words >> declared >> word && word == "(should" && words >> word &&
            words >> present && declared > present && declared < kUnknownBytes) {
            return "truncated: " + std::to_string(present) + " of " + std::to_string(declared) +
                   " bytes";
        }
    }
    return {};
}

}  // namespace

std::string sndfile_reason(const std::string& message) {
    if (message.find("SF_INFO struct incomplete") != std::string::npos) {
        return "its header gives no sampling rate or no channels";
    }
    std::string line = message.substr(message.starts_with("Error : ") ? 8 : 0);
    line.resize(std::min(line.find('\n'), line.size()));
    while (!line.empty() && (line.back() == '.' || line.back() == ' ')) {
        line.pop_back();
    }
    return line;
}

SndfileSource::SndfileSource(const std::string& name) : InputSource(name) {
    if (!input_.live() && input_.size() == 0) {
        throw Failure(input_name(name), "empty file");
    }
    open();
    kind_ = sample_kind(format_.format);
    info_.rate = info_.input_rate = format_.samplerate;
    info_.channels = info_.input_channels = format_.channels;
    info_.sf_format = format_.format;
    info_.bit_exact = !is_inexact(format_.format);
    if (length_known()) {
        info_.length = format_.frames;
    }
}

void SndfileSource::open() {
    // Some formats show only in the name of a file.
    const bool by_name = !input_.live() && info_.name != "-";
    if (input_.live()) {
        const uint32_t magic = input_.peek_magic();
        if (magic != 0 && std::count(kStreamed.begin(), kStreamed.end(), magic) == 0) {
            input_.spool();
        }
    }
    file_.reset(by_name ? sf_open(info_.name.c_str(), SFM_READ, &format_)
                        : sf_open_fd(input_.get(), SFM_READ, &format_, SF_FALSE));
    // libsndfile makes do with what it has read of a header.
    if (!file_ || sf_error(file_.get()) == SF_ERR_SYSTEM) {
        throw Failure(input_name(info_.name), sndfile_reason(sf_strerror(file_.get())));
    }
}

bool SndfileSource::length_known() const {
    // In a pipe a placeholder's length in frames is all that is known of it: up to 8 bytes a
    // sample.
    return format_.frames < SF_COUNT_MAX &&
           !(input_.live() && format_.frames >= kUnknownBytes / 8 / format_.channels);
}

int64_t SndfileSource::read_piece(int16_t* piece, int64_t frames) {
    const auto size = static_cast<std::size_t>(frames * info_.channels);
    sf_count_t count = 0;
    switch (kind_) {
        case SampleKind::kShort:
            count = sf_readf_short(file_.get(), piece, frames);
            break;
        case SampleKind::kInt:
            wide_.resize(size);
            count = sf_readf_int(file_.get(), wide_.data(), frames);
            std::transform(wide_.begin(), wide_.end(), piece, sample_from_int);
            break;
        case SampleKind::kReal:
            real_.resize(size);
            count = sf_readf_double(file_.get(), real_.data(), frames);
            std::transform(real_.begin(), real_.end(), piece, sample_from_float);
            break;
    }
    return sf_error(file_.get()) == SF_ERR_NO_ERROR ? count
                                                    : std::clamp<int64_t>(count, 0, frames - 1);
}

void SndfileSource::check_end(int64_t frames_read) {
    const std::string name = input_name(info_.name);
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
        throw Failure(name, sndfile_reason(sf_strerror(file_.get())));
    }
    std::vector<char> log(16384);
    sf_command(file_.get(), SFC_GET_LOG_INFO, log.data(), static_cast<int>(log.size()));
    const std::string loss = loss_in_log(log.data(), format_.format);
    if (!loss.empty()) {
        throw Failure(name, loss);
    }
    if (length_known() && frames_read < format_.frames) {
        throw Failure(name, "truncated: " + std::to_string(frames_read) + " of " +
                                std::to_string(format_.frames) + " samples");
    }
}

}  // namespace korvane::tool
