#include "recording.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <sstream>

#include "failure.h"

namespace korvane::tool {

namespace {

constexpr int64_t kPieceFrames = 65536;
constexpr int kRateLimit = 50000;

// Programs that write to a pipe cannot know the length and put a huge one into the header. What is
// declared from here on (in bytes) is such a placeholder.
constexpr int64_t kUnknownBytes = 0x7F000000;

/** A message of libsndfile as one line without its "Error : " and full stop. */
std::string reason(const std::string& message) {
    std::string line = message.substr(message.starts_with("Error : ") ? 8 : 0);
    line.resize(std::min(line.find('\n'), line.size()));
    while (!line.empty() && (line.back() == '.' || line.back() == ' ')) {
        line.pop_back();
    }
    return line;
}

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

int16_t sample_from_float(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    return static_cast<int16_t>(std::clamp(std::nearbyint(value * 32768.0), -32768.0, 32767.0));
}

Recording::Recording(const std::string& path) : path_(path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0) {
        throw Failure(path, std::strerror(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        throw Failure(path, std::strerror(EISDIR));
    }
    if (S_ISREG(status.st_mode) && status.st_size == 0) {
        throw Failure(path, "empty file");
    }
    file_.reset(sf_open(path.c_str(), SFM_READ, &info_));
    if (!file_) {
        throw Failure(path, reason(sf_strerror(nullptr)));
    }
    if (info_.channels != 1 && info_.channels != 2) {
        throw Failure(path, std::to_string(info_.channels) +
                                " channels; only mono and stereo recordings can be processed");
    }
    if (info_.samplerate < 1 || info_.samplerate >= kRateLimit) {
        throw Failure(path, "sampling rate " + std::to_string(info_.samplerate) +
                                " Hz; it must be below " + std::to_string(kRateLimit) +
                                " Hz (1 to " + std::to_string(kRateLimit - 1) + ")");
    }
    kind_ = kind_of(info_.format);
}

Recording::Kind Recording::kind_of(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_FLOAT:
        case SF_FORMAT_DOUBLE:
        case SF_FORMAT_VORBIS:
        case SF_FORMAT_OPUS:
        case SF_FORMAT_MPEG_LAYER_I:
        case SF_FORMAT_MPEG_LAYER_II:
        case SF_FORMAT_MPEG_LAYER_III:
            return Kind::kFloat;
        case SF_FORMAT_PCM_24:
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_DWVW_24:
        case SF_FORMAT_DWVW_N:
        case SF_FORMAT_ALAC_20:
        case SF_FORMAT_ALAC_24:
        case SF_FORMAT_ALAC_32:
            return Kind::kInt;
        default:  // integers of up to 16 bits, and the speech codecs, which decode to 16 bits
            return Kind::kShort;
    }
}

int64_t Recording::read(int16_t* out, int64_t n) {
    const auto wanted = static_cast<std::size_t>(n * info_.channels);
    std::size_t filled = 0;
    while (filled < wanted) {
        if (used_ == piece_.size()) {
            if (ended_) {
                break;
            }
            refill();
            continue;
        }
        const std::size_t count = std::min(wanted - filled, piece_.size() - used_);
        std::copy_n(piece_.data() + used_, count, out + filled);
        used_ += count;
        filled += count;
    }
    return static_cast<int64_t>(filled) / info_.channels;
}

void Recording::refill() {
    const auto size = static_cast<std::size_t>(kPieceFrames * info_.channels);
    piece_.resize(size);
    used_ = 0;
    sf_count_t frames = 0;
    switch (kind_) {
        case Kind::kShort:
            frames = sf_readf_short(file_.get(), piece_.data(), kPieceFrames);
            break;
        case Kind::kInt:
            wide_.resize(size);
            frames = sf_readf_int(file_.get(), wide_.data(), kPieceFrames);
            std::transform(wide_.begin(), wide_.end(), piece_.begin(), sample_from_int);
            break;
        case Kind::kFloat:
            real_.resize(size);
            frames = sf_readf_double(file_.get(), real_.data(), kPieceFrames);
            std::transform(real_.begin(), real_.end(), piece_.begin(), sample_from_float);
            break;
    }
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
        throw Failure(path_, reason(sf_strerror(file_.get())));
    }
    frames = std::max<sf_count_t>(frames, 0);
    piece_.resize(static_cast<std::size_t>(frames * info_.channels));
    frames_read_ += frames;
    if (frames < kPieceFrames) {
        ended_ = true;
        check_complete();
    }
}

void Recording::check_complete() const {
    std::vector<char> log(16384);
    sf_command(file_.get(), SFC_GET_LOG_INFO, log.data(), static_cast<int>(log.size()));
    const std::string loss = loss_in_log(log.data(), info_.format);
    if (!loss.empty()) {
        throw Failure(path_, loss);
    }
    // In a pipe a placeholder's length in frames is all that is known of it: up to 8 bytes a
    // sample.
    const bool unknown = info_.frames >= SF_COUNT_MAX ||
                         (!info_.seekable && info_.frames >= kUnknownBytes / 8 / info_.channels);
    if (!unknown && frames_read_ < info_.frames) {
        throw Failure(path_, "truncated: " + std::to_string(frames_read_) + " of " +
                                 std::to_string(info_.frames) + " samples");
    }
    if (frames_read_ == 0) {
        throw Failure(path_, "holds no samples");
    }
}

}  // namespace korvane::tool
