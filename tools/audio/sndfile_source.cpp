#include "tools/audio/sndfile_source.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string_view>
#include <utility>

#include "tools/audio/mpeg_frames.h"
#include "tools/audio/ogg_links.h"
#include "tools/audio/unfinished_wav.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

constexpr int64_t kMostBeforeMpeg = 65536;  // bytes of neither tag nor frame before the first frame
constexpr int64_t kEndless = int64_t{1} << 40;  // bytes; more than a recording has
constexpr const char* kOtherSound = "has another rate or number of channels";

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
        if (line.find("without an End-Of-Stream") != std::string::npos ||
            line.find("lacks an end-of-stream bit") != std::string::npos) {  // since libsndfile 1.1
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

/** The same samples without a header. */
SF_INFO raw_format(const SF_INFO& format) {
    const int order = format.format & SF_FORMAT_ENDMASK;
    const bool big = order == SF_ENDIAN_BIG ||
                     (order == SF_ENDIAN_FILE && container_of(format.format) == SF_FORMAT_AU);
    SF_INFO raw{};
    raw.samplerate = format.samplerate;
    raw.channels = format.channels;
    raw.format = SF_FORMAT_RAW | (format.format & SF_FORMAT_SUBMASK) |
                 (big ? SF_ENDIAN_BIG : SF_ENDIAN_LITTLE);
    return raw;
}

/** Whether libsndfile promises no more samples of such a file than it holds. */
bool forgets_length(int format) {
    return container_of(format) == SF_FORMAT_RF64 || container_of(format) == SF_FORMAT_MAT4;
}

/** What the header of a NIST SPHERE file says of its length, in samples a channel; 0 where it says nothing. */
int64_t sphere_length(InputDescriptor& file) {
    constexpr std::string_view kField = "sample_count -i ";
    std::string header(1024, '\0');
    header.resize(file.read_at(0, header.data(), header.size()));
    const std::size_t at = header.find(kField);
    return at == std::string::npos ? 0 : std::atoll(header.c_str() + at + kField.size());
}

/** Whether a VOC file's sound is in several blocks, whose heads libsndfile would take for sound. */
bool has_several_voc_blocks(InputDescriptor& file) {
    constexpr uint8_t kLastSound = 2;  // 1 begins sound, 2 goes on with it
    constexpr uint8_t kSound16 = 9;
    uint8_t head[26];
    if (file.read_at(0, head, sizeof head) != sizeof head) {
        return false;
    }
    int blocks = 0;
    for (int64_t at = head[20] | head[21] << 8; file.read_at(at, head, 4) == 4 && head[0] != 0;) {
        blocks += head[0] <= kLastSound || head[0] == kSound16 ? 1 : 0;
        at += 4 + (head[1] | head[2] << 8 | head[3] << 16);
    }
    return blocks > 1;
}

/** Where a file cannot be read: a line that may work. */
std::string decoder_hint(const std::string& name) {
    std::string word = "'";
    for (const char c : name) {
        word += c == '\'' ? "'\\''" : std::string(1, c);
    }
    word += "'";
    const bool plain = name.find_first_not_of(
                           "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                           "./_+-") == std::string::npos;
    return "; try ffmpeg -i " + (plain ? name : word) + " -f wav - | korvane-vad -";
}

}  // namespace

std::string sndfile_reason(const std::string& message) {
    if (message.find("SF_INFO struct incomplete") != std::string::npos) {
        return "its header gives no sampling rate or no channels";
    }
    if (message.find("File does not exist or is not a regular file") != std::string::npos) {
        return "no sound is found in it";  // by the MPEG decoder, which may be the last to look
    }
    std::string line = message.substr(message.starts_with("Error : ") ? 8 : 0);
    line.resize(std::min(line.find('\n'), line.size()));
    while (!line.empty() && (line.back() == '.' || line.back() == ' ')) {
        line.pop_back();
    }
    return line;
}

SndfileSource::SndfileSource(const std::string& name, OriginalListener original)
    : InputSource(name, std::move(original)), is_named_(!input_.live() && name != "-") {
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

// Some formats show only in the name of a file. MPEG is tried first: opened by its name, the decoder would talk to
// standard error where the file does not end where its header says.
void SndfileSource::open_file() {
    if (input_.live()) {
        const uint32_t magic = input_.peek_magic();
        if (magic != 0 && std::count(kStreamed.begin(), kStreamed.end(), magic) == 0) {
            input_.spool();
        }
    }
    if (input_.live()) {
        file_.reset(sf_open_fd(input_.get(), SFM_READ, &format_, SF_FALSE));
    } else if (open_mpeg(0)) {
        return;
    } else if (is_named_) {
        file_.reset();
        format_ = {};
        file_.reset(sf_open(info_.name.c_str(), SFM_READ, &format_));
    } else {
        open_window({input_, 0, input_.size()}, {});
    }
}

// Where CAF is cut libsndfile refuses it, and of RF64 and MAT4 it forgets the length that the header promises. It shows
// where the file claims to be longer: then the length is the same for two such claims. False where there is none.
bool SndfileSource::open_as_promised() {
    int64_t promised[2] = {};
    for (int i = 0; i < 2; ++i) {
        if (!open_window({input_, 0, input_.size(), kEndless << i}, {})) {
            return false;
        }
        promised[i] = format_.frames;
    }
    return promised[0] == promised[1];
}

void SndfileSource::open() {
    const DecoderMessages::Diversion diversion(messages_);
    open_file();
    const bool may_promise_more = !file_ || forgets_length(format_.format);
    if (!input_.live() && may_promise_more && !open_as_promised()) {
        open_file();
    }
    if (file_ && !input_.live() && container_of(format_.format) == SF_FORMAT_NIST) {
        format_.frames = std::max(format_.frames, sphere_length(input_));
    }
    if (!input_.live()) {
        open_to_its_end();
    }
    // libsndfile makes do with what it has read of a header.
    if (!file_ || sf_error(file_.get()) == SF_ERR_SYSTEM) {
        if (input_.interrupted()) {
            throw Interrupted(input_name(info_.name));
        }
        throw Failure(input_name(info_.name),
                      sndfile_reason(sf_strerror(file_.get())) + decoder_hint(info_.name));
    }
    const int container = container_of(format_.format);
    if (input_.live()) {
        return;
    }
    if (container == SF_FORMAT_VOC && has_several_voc_blocks(input_)) {
        throw Failure(
            input_name(info_.name),
            "a VOC file of several blocks, which are not read here" + decoder_hint(info_.name));
    }
    if (container == SF_FORMAT_MPEG && !open_mpeg(kMostBeforeMpeg) && !file_) {
        throw Failure(input_name(info_.name), "no MPEG frame is found");
    }
    if (container == SF_FORMAT_OGG) {
        open_chain();
    }
}

/** Where the header says nothing of the length: all that the file holds. */
void SndfileSource::open_to_its_end() {
    if (!file_) {
        if (const auto caf = find_open_ended_caf(input_)) {
            open_window({input_, caf->start, input_.size() - caf->start}, caf->samples);
            format_.format = SF_FORMAT_CAF | (caf->samples.format & ~SF_FORMAT_TYPEMASK);
        }
    } else if (const auto start = start_of_unfinished_samples(input_);
               start && sample_bytes(format_.format) > 0) {
        const int format = format_.format;
        open_window({input_, *start, input_.size() - *start}, raw_format(format_));
        format_.format = format;
    }
}

void SndfileSource::open_chain() {
    const OggLinks found = find_ogg_links(input_);
    links_ = found.starts;
    if (links_.empty()) {
        return;  // libsndfile has found something all the same
    }
    is_cut_at_fault_ = found.is_damaged;
    unfinished_link_ = found.unfinished;
    if (links_.size() > 1 || found.is_damaged) {
        links_.push_back(found.end);
        open_window(link_window(), {});
    }
}

bool SndfileSource::open_window(const FileWindow& window, const SF_INFO& format) {
    file_.reset();  // which reads from the window before
    window_ = window;
    format_ = format;
    file_.reset(window_->open(format_));
    return file_ != nullptr;
}

FileWindow SndfileSource::link_window() {
    return {input_, links_[link_], links_[link_ + 1] - links_[link_]};
}

// libsndfile ends with the first link. False where the next one cannot be read after it.
bool SndfileSource::open_next_link() {
    ++link_;
    if (!open_window(link_window(), {})) {
        fault_of_link_ = sndfile_reason(sf_strerror(nullptr));
    } else if (format_.samplerate != info_.input_rate || format_.channels != info_.input_channels) {
        fault_of_link_ = kOtherSound;
    }
    return fault_of_link_.empty();
}

// Of MPEG without a count of its frames libsndfile guesses the length from the file's, and would end there. With a count
// the decoder would talk to standard error where the file does not end where the count's frame says.
bool SndfileSource::open_mpeg(int64_t most_before) {
    const auto sound = find_mpeg(input_, end_of_id3_tags(input_, 0), most_before);
    if (!sound) {
        return false;
    }
    const MpegExtent extent = extent_of_mpeg(input_, sound->start);
    const int64_t size = extent.end - sound->start;
    const int64_t counted = sound->byte_count > 0 ? sound->byte_count : size;
    open_window({input_, sound->start, size, sound->counted ? counted : kEndless}, {});
    if (!sound->counted) {
        format_.frames = SF_COUNT_MAX;
    }
    if (file_ && extent.changes) {
        link_ = 1;
        fault_of_link_ = kOtherSound;
    }
    return file_ && container_of(format_.format) == SF_FORMAT_MPEG;
}

bool SndfileSource::length_known() const {
    // A WAV with MPEG in it only counts what it should become. In a pipe a placeholder's length in
    // frames is all that is known of it: up to 8 bytes a sample.
    return format_.frames < SF_COUNT_MAX && links_.size() <= 2 &&
           !(is_mpeg(format_.format) && container_of(format_.format) != SF_FORMAT_MPEG) &&
           !(input_.live() &&
             (format_.frames == 0 || format_.frames >= kUnknownBytes / 8 / format_.channels));
}

bool SndfileSource::goes_on_after_declared_end() const {
    const int container = container_of(format_.format);
    return input_.live() && !length_known() && sample_bytes(format_.format) > 0 &&
           (container == SF_FORMAT_WAV || container == SF_FORMAT_WAVEX ||
            container == SF_FORMAT_AU);
}

int64_t SndfileSource::read_piece(int16_t* piece, int64_t frames) {
    // Of a stream libsndfile would read beyond the declared end, and drop that.
    const int64_t declared = std::min(frames, format_.frames - given_);
    const int64_t count = read_converted(piece, declared);
    given_ += count;
    if (count < frames && link_ + 2 < links_.size() && sf_error(file_.get()) == SF_ERR_NO_ERROR &&
        open_next_link()) {
        given_ = 0;
        return count + read_piece(piece + count * info_.channels, frames - count);
    }
    if (count < declared || declared == frames || !goes_on_after_declared_end()) {
        return count;
    }
    SF_INFO raw = raw_format(format_);
    file_.reset(sf_open_fd(input_.get(), SFM_READ, &raw, SF_FALSE));
    format_.frames = SF_COUNT_MAX;
    given_ = 0;
    return file_ ? count + read_piece(piece + count * info_.channels, frames - count) : count;
}

int64_t SndfileSource::read_converted(int16_t* piece, int64_t frames) {
    const auto size = static_cast<std::size_t>(frames * info_.channels);
    sf_count_t count = 0;
    const void* original = piece;
    std::optional<DecoderMessages::Diversion> diversion;
    if (is_mpeg(format_.format)) {
        diversion.emplace(messages_);
    }
    switch (kind_) {
        case SampleKind::kShort:
            count = sf_readf_short(file_.get(), piece, frames);
            break;
        case SampleKind::kInt:
            wide_.resize(size);
            count = sf_readf_int(file_.get(), wide_.data(), frames);
            original = wide_.data();
            std::transform(wide_.begin(), wide_.end(), piece, sample_from_int);
            break;
        case SampleKind::kReal:
            real_.resize(size);
            count = sf_readf_double(file_.get(), real_.data(), frames);
            original = real_.data();
            std::transform(real_.begin(), real_.end(), piece, sample_from_float);
            break;
    }
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
        count = std::clamp<int64_t>(count, 0, std::max<int64_t>(frames - 1, 0));
    }
    if (original_) {
        original_(original, count);
    }
    return count;
}

void SndfileSource::check_end(int64_t frames_read) {
    const std::string name = input_name(info_.name);
    input_.check();
    if (!fault_of_link_.empty()) {
        throw Failure(name,
                      "part " + std::to_string(link_ + 1) + " of the chain: " + fault_of_link_);
    }
    const int container = container_of(format_.format);
    const int error = sf_error(file_.get());
    if (error != SF_ERR_NO_ERROR && container != SF_FORMAT_MPEG) {
        throw Failure(name, sndfile_reason(sf_strerror(file_.get())));
    }
    if (is_cut_at_fault_) {
        throw Failure(name, "damaged: pages are missing or wrong");
    }
    if (unfinished_link_ > 0) {
        throw Failure(name, "part " + std::to_string(unfinished_link_) +
                                " of the chain: its last page is missing");
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
    if (error != SF_ERR_NO_ERROR) {  // of MPEG, for which libsndfile has no words
        throw Failure(name, "damaged, or cut within a frame");
    }
    if (messages_.tell_of_damage()) {
        throw Failure(name, "damaged: the decoder has left out some of it");
    }
    char more = 0;
    if (input_.live() && container == SF_FORMAT_OGG && input_.read(&more, 1) > 0) {
        throw Failure(name, "a chain, of which only a file can be read to the end");
    }
}

}  // namespace korvane::tool
