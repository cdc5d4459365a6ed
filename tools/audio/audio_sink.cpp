#include "tools/audio/audio_sink.h"

#include <sndfile.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "tools/audio/sample_conversion.h"
#include "tools/audio/sndfile_source.h"
#include "tools/files/failure.h"
#include "tools/files/temporary_file.h"
#include "tools/files/write_all.h"

namespace korvane::tool {

namespace {

constexpr std::size_t kPieceSamples = 131072;

/** Most samples, all channels together, that the container's size fields can count. */
int64_t max_samples(int format) {
    constexpr int64_t kLargest = UINT32_MAX - 4096;  // leaves room for headers
    const int container = container_of(format);
    const bool wide = container == SF_FORMAT_W64 || container == SF_FORMAT_RF64 ||
                      container == SF_FORMAT_CAF || container == SF_FORMAT_FLAC;
    const int64_t bytes = sample_bytes(format);
    return wide || bytes == 0 ? INT64_MAX : kLargest / bytes;
}

std::string format_name(int format) {
    SF_FORMAT_INFO container{};
    container.format = container_of(format);
    sf_command(nullptr, SFC_GET_FORMAT_INFO, &container, sizeof container);
    SF_FORMAT_INFO encoding{};
    encoding.format = format & SF_FORMAT_SUBMASK;
    sf_command(nullptr, SFC_GET_FORMAT_INFO, &encoding, sizeof encoding);
    return std::string(container.name != nullptr ? container.name : "unknown format") + ", " +
           (encoding.name != nullptr ? encoding.name : "unknown encoding");
}

/** Full scale 1.0 for what is floating point or coded from it, else the samples as they are: wider
 * integers are filled up with zeros. */
sf_count_t write_samples(SNDFILE* file, int format, const std::vector<int16_t>& samples) {
    const auto count = static_cast<sf_count_t>(samples.size());
    if (sample_kind(format) != SampleKind::kReal) {
        return sf_write_short(file, samples.data(), count);
    }
    std::vector<double> real(samples.size());
    std::transform(samples.begin(), samples.end(), real.begin(),
                   [](int16_t sample) { return sample / 32768.0; });
    return sf_write_double(file, real.data(), count);
}

/** What libsndfile writes to. It keeps the error that libsndfile and its encoders pass over. */
struct Output {
    int descriptor = -1;
    int error = 0;
};

Output& output_of(void* data) { return *static_cast<Output*>(data); }

/** What a call gave, its error kept. */
sf_count_t kept(Output& output, sf_count_t result) {
    if (result < 0 && output.error == 0) {
        output.error = errno;
    }
    return result;
}

sf_count_t write_output(const void* bytes, sf_count_t count, void* data) {
    Output& output = output_of(data);
    if (output.error == 0) {
        const auto size = static_cast<std::size_t>(count);
        kept(output,
             write_all(output.descriptor, {static_cast<const char*>(bytes), size}) ? 0 : -1);
    }
    return output.error == 0 ? count : 0;
}

SF_VIRTUAL_IO output_calls() {
    SF_VIRTUAL_IO calls{};
    calls.get_filelen = [](void* data) -> sf_count_t {
        struct stat status {};
        kept(output_of(data), fstat(output_of(data).descriptor, &status));
        return status.st_size;
    };
    calls.seek = [](sf_count_t offset, int whence, void* data) -> sf_count_t {
        return kept(output_of(data), lseek(output_of(data).descriptor, offset, whence));
    };
    calls.tell = [](void* data) -> sf_count_t {
        return kept(output_of(data), lseek(output_of(data).descriptor, 0, SEEK_CUR));
    };
    calls.read = [](void* bytes, sf_count_t count, void* data) -> sf_count_t {
        return read(output_of(data).descriptor, bytes, static_cast<std::size_t>(count));
    };
    calls.write = write_output;
    return calls;
}

SndfileHandle open_for_writing(Output& output, int format, int rate, int channels) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SndfileHandle file;
    if (sf_format_check(&info) != 0) {
        SF_VIRTUAL_IO calls = output_calls();
        file.reset(sf_open_virtual(&calls, SFM_WRITE, &info, &output));
    }
    if (file) {
        sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);  // what is beyond full scale
        sf_command(file.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr,
                   SF_FALSE);  // it holds the time of day
    }
    return file;
}

bool reads_back_as(int descriptor, int format, int rate, int channels, int64_t length) {
    SF_INFO info{};
    if (lseek(descriptor, 0, SEEK_SET) != 0) {
        return false;
    }
    const SndfileHandle file(sf_open_fd(descriptor, SFM_READ, &info, SF_FALSE));
    return file != nullptr && container_of(info.format) == container_of(format) &&
           info.samplerate == rate && info.channels == channels && info.frames == length;
}

/** libsndfile's ALAC encoder frees its buffers twice when the disk is full. SD2 it writes in two files, the second of
 * them "._" in the current folder where the first has no name; while that is there, it takes MPEG for SD2. */
bool is_safe_to_write(int format) {
    const int encoding = format & SF_FORMAT_SUBMASK;
    return container_of(format) != SF_FORMAT_SD2 &&
           (encoding < SF_FORMAT_ALAC_16 || encoding > SF_FORMAT_ALAC_32);
}

/** Whether a file of this format keeps the rate, the channels and any length. */
bool holds(int format, int rate, int channels) {
    if (!is_safe_to_write(format)) {
        return false;
    }
    using Key = std::tuple<int, int, int>;
    static std::map<Key, bool> known;  // split opens many files of one format
    const auto [place, is_new] = known.try_emplace(Key{format, rate, channels}, false);
    if (!is_new) {
        return place->second;
    }
    // Formats of whole blocks fill up the last one, some fill up to an even number. A prime is no
    // multiple of anything.
    constexpr int64_t kLength = 10007;
    Output memory{memfd_create("korvane-vad", MFD_CLOEXEC)};
    SndfileHandle file = open_for_writing(memory, format, rate, channels);
    if (file) {
        const std::vector<int16_t> silence(static_cast<std::size_t>(kLength * channels));
        write_samples(file.get(), format, silence);
        file.reset();
        place->second = reads_back_as(memory.descriptor, format, rate, channels, kLength);
    }
    close(memory.descriptor);
    return place->second;
}

// Names in use that libsndfile's list lacks.
struct Extension {
    std::string_view name;
    int container;
};
constexpr std::array<Extension, 10> kExtensions = {{{"aif", SF_FORMAT_AIFF},
                                                    {"oga", SF_FORMAT_OGG},
                                                    {"aifc", SF_FORMAT_AIFF},
                                                    {"snd", SF_FORMAT_AU},
                                                    {"ogg", SF_FORMAT_OGG},
                                                    {"opus", SF_FORMAT_OGG},
                                                    {"mp3", SF_FORMAT_MPEG},
                                                    {"wave", SF_FORMAT_WAV},
                                                    {"wavex", SF_FORMAT_WAVEX},
                                                    {"pcm", SF_FORMAT_RAW}}};

/** Without its dot, in lower case. */
std::string extension_of(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension();
    extension.erase(0, 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

/** The containers that go by an extension; several share .wav and .mat. */
std::vector<int> containers_named(const std::string& extension) {
    std::vector<int> containers;
    for (const Extension& known : kExtensions) {
        if (extension == known.name) {
            containers.push_back(known.container);
        }
    }
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof count);
    for (int i = 0; i < count; ++i) {
        SF_FORMAT_INFO info{};
        info.format = i;
        sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof info);
        if (extension == info.extension) {
            containers.push_back(info.format);
        }
    }
    return containers;
}

/** The container's own encoding of 16 bits, without loss if it has one; 0 where it has none. */
int encoding_for(int container, const SourceInfo& source, bool opus) {
    const std::array encodings = {SF_FORMAT_PCM_16, opus ? SF_FORMAT_OPUS : SF_FORMAT_VORBIS,
                                  opus ? SF_FORMAT_VORBIS : SF_FORMAT_OPUS,
                                  SF_FORMAT_MPEG_LAYER_III};
    for (const int encoding : encodings) {
        if (holds(container | encoding, source.rate, source.channels)) {
            return encoding;
        }
    }
    return 0;
}

constexpr const char* kTooLong =
    "too long for this format (4 GiB); .w64, .rf64 and .flac hold more";

/** Why a file of this format cannot be written; empty where it can. */
std::string cannot_hold(int format, int rate, int channels) {
    if (holds(format, rate, channels)) {
        return "";
    }
    return "the format (" + format_name(format) + ") cannot hold " +
           (channels == 1 ? "mono" : std::to_string(channels) + " channels") + " at " +
           std::to_string(rate) + " Hz and keep its length";
}

/** Rounded to 16 bits. */
std::vector<int16_t> narrowed(const void* samples, int64_t count, SampleKind kind) {
    std::vector<int16_t> narrow(static_cast<std::size_t>(count));
    if (kind == SampleKind::kInt) {
        const auto* wide = static_cast<const int32_t*>(samples);
        std::transform(wide, wide + count, narrow.begin(), sample_from_int);
    } else if (kind == SampleKind::kReal) {
        const auto* real = static_cast<const double*>(samples);
        std::transform(real, real + count, narrow.begin(), sample_from_float);
    } else {
        std::copy_n(static_cast<const int16_t*>(samples), count, narrow.begin());
    }
    return narrow;
}

/** A file in the making, or standard output. */
class Target {
  public:
    explicit Target(const std::string& path) : name_(path == "-" ? "standard output" : path) {
        if (path != "-") {
            file_ = std::make_unique<TemporaryFile>(path);
        }
    }
    int descriptor() const { return file_ ? file_->descriptor() : STDOUT_FILENO; }
    bool is_stdout() const { return !file_; }
    std::unique_ptr<TemporaryFile> take() { return std::move(file_); }
    [[noreturn]] void fail(const std::string& reason) const { throw Failure(name_, reason); }

  private:
    std::string name_;
    std::unique_ptr<TemporaryFile> file_;
};

class RawSink : public AudioSink {
  public:
    RawSink(const std::string& path, int channels) : target_(path), channels_(channels) {}

    void write(const int16_t* samples, int64_t n) override {
        for (int64_t i = 0; i < n * channels_; ++i) {
            const auto bits = static_cast<uint16_t>(samples[i]);
            pending_.push_back(static_cast<char>(bits & 0xFF));
            pending_.push_back(static_cast<char>(bits >> 8));
        }
        // Whoever listens to standard output gets every frame at once.
        if (target_.is_stdout() || pending_.size() >= 2 * kPieceSamples) {
            flush();
        }
    }

    void write_original(const void* samples, int64_t n, SampleKind kind) override {
        write(narrowed(samples, n * channels_, kind).data(), n);
    }

    std::unique_ptr<TemporaryFile> finish() override {
        flush();
        return target_.take();
    }

  private:
    void flush() {
        if (!write_all(target_.descriptor(), {pending_.data(), pending_.size()})) {
            if (errno == EPIPE && target_.is_stdout()) {
                throw ReaderGone();
            }
            target_.fail(std::strerror(errno));
        }
        pending_.clear();
    }

    Target target_;
    int channels_;
    std::vector<char> pending_;
};

class SndfileSink : public AudioSink {
  public:
    SndfileSink(const std::string& path, int format, int rate, int channels)
        : target_(path),
          output_{target_.descriptor()},
          format_(format),
          rate_(rate),
          channels_(channels) {
        if (const std::string reason = cannot_hold(format, rate, channels); !reason.empty()) {
            target_.fail(reason);
        }
        file_ = open_for_writing(output_, format, rate, channels);
        if (!file_) {
            target_.fail(sndfile_reason(sf_strerror(nullptr)));
        }
    }

    void write_original(const void* samples, int64_t n, SampleKind kind) override {
        const int64_t count = n * channels_;
        const SampleKind own = sample_kind(format_);
        if (own == SampleKind::kShort || kind == SampleKind::kShort) {
            write(narrowed(samples, count, kind).data(), n);
            return;
        }
        add_length(count);
        flush();
        sf_count_t written = 0;
        if (kind == SampleKind::kReal) {
            written = sf_write_double(file_.get(), static_cast<const double*>(samples), count);
        } else if (own == SampleKind::kInt) {
            written = sf_write_int(file_.get(), static_cast<const int32_t*>(samples), count);
        } else {
            const auto* wide = static_cast<const int32_t*>(samples);
            std::vector<double> real(static_cast<std::size_t>(count));
            std::transform(wide, wide + count, real.begin(),
                           [](int32_t sample) { return sample / 2147483648.0; });
            written = sf_write_double(file_.get(), real.data(), count);
        }
        check_written(written, count);
    }

    void write(const int16_t* samples, int64_t n) override {
        const int64_t count = n * channels_;
        add_length(count);
        pending_.insert(pending_.end(), samples, samples + count);
        if (pending_.size() >= kPieceSamples) {
            flush();
        }
    }

    std::unique_ptr<TemporaryFile> finish() override {
        flush();
        const int failed = sf_close(file_.release());
        check_output();
        if (failed != 0) {
            target_.fail("cannot be written");
        }
        if (!reads_back_as(target_.descriptor(), format_, rate_, channels_,
                           samples_written_ / channels_)) {
            target_.fail("could not be written completely");
        }
        return target_.take();
    }

  private:
    void flush() {
        check_written(write_samples(file_.get(), format_, pending_),
                      static_cast<sf_count_t>(pending_.size()));
        pending_.clear();
    }

    void add_length(int64_t count) {
        if (count > max_samples(format_) - samples_written_) {
            target_.fail(kTooLong);
        }
        samples_written_ += count;
    }

    void check_written(sf_count_t written, sf_count_t count) const {
        check_output();
        if (written != count) {
            target_.fail(sndfile_reason(sf_strerror(file_.get())));
        }
    }

    void check_output() const {
        if (output_.error != 0) {
            target_.fail(std::strerror(output_.error));
        }
    }

    Target target_;
    Output output_;
    int format_;
    int rate_;
    int channels_;
    SndfileHandle file_;  // closed before the target goes
    int64_t samples_written_ = 0;
    std::vector<int16_t> pending_;
};

}  // namespace

bool is_sound_name(const std::string& path) {
    const std::string extension = extension_of(path);
    return !extension.empty() && !containers_named(extension).empty();
}

int sink_format(const SourceInfo& source, const std::string& path) {
    if (path == "-") {
        return 0;
    }
    const std::string extension = extension_of(path);
    const std::vector<int> named = containers_named(extension);
    const int own = container_of(source.sf_format);
    const bool own_container = named.empty() || std::count(named.begin(), named.end(), own) != 0;
    if (own_container && holds(source.sf_format, source.rate, source.channels)) {
        return source.sf_format;
    }
    const int container = !named.empty() && !own_container ? named.front() : own;
    if (container == SF_FORMAT_RAW || container == 0) {
        return !named.empty() || own == 0 ? 0 : SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    }
    // What a codec has lost is lost; in another container plain samples keep the rest.
    const int encoding = source.sf_format & SF_FORMAT_SUBMASK;
    if (!is_inexact(encoding) && holds(container | encoding, source.rate, source.channels)) {
        return container | encoding;
    }
    if (const int other = encoding_for(container, source, extension == "opus")) {
        return container | other;
    }
    // A name must not lie about what is in the file: opening it will say why that cannot be.
    return named.empty() ? SF_FORMAT_WAV | SF_FORMAT_PCM_16 : container | SF_FORMAT_PCM_16;
}

void check_sink(const SourceInfo& source, const std::string& path) {
    const std::string extension = path == "-" ? "" : extension_of(path);
    // The end of a number of seconds is no extension.
    const bool named = extension.find_first_not_of("0123456789") != std::string::npos;
    if (named && extension != extension_of(source.name) && containers_named(extension).empty()) {
        throw Failure(path,
                      "no ." + extension +
                          " is written here, but .wav .flac .ogg .opus .mp3 .aiff .au .caf .w64 "
                          ".rf64 .raw and others; without an extension it is the input's format");
    }
    const int format = sink_format(source, path);
    if (format == 0) {
        return;
    }
    if (const std::string reason = cannot_hold(format, source.rate, source.channels);
        !reason.empty()) {
        throw Failure(path, reason);
    }
    if (source.length && *source.length > max_samples(format) / source.channels) {
        throw Failure(path, kTooLong);
    }
}

std::unique_ptr<AudioSink> open_sink(const std::string& path, int sf_format, int rate,
                                     int channels) {
    if (sf_format == 0) {
        return std::make_unique<RawSink>(path, channels);
    }
    return std::make_unique<SndfileSink>(path, sf_format, rate, channels);
}

}  // namespace korvane::tool
