#include "tools/audio/sink_format.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <map>
#include <string_view>
#include <tuple>
#include <vector>

#include "tools/audio/sample_conversion.h"
#include "tools/audio/sndfile_output.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

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

}  // namespace

int64_t max_samples(int format) {
    constexpr int64_t kLargest = UINT32_MAX - 4096;  // leaves room for headers
    const int container = container_of(format);
    const bool wide = container == SF_FORMAT_W64 || container == SF_FORMAT_RF64 ||
                      container == SF_FORMAT_CAF || container == SF_FORMAT_FLAC;
    const int64_t bytes = sample_bytes(format);
    return wide || bytes == 0 ? INT64_MAX : kLargest / bytes;
}

std::string cannot_hold(int format, int rate, int channels) {
    if (holds(format, rate, channels)) {
        return "";
    }
    return "the format (" + format_name(format) + ") cannot hold " +
           (channels == 1 ? "mono" : std::to_string(channels) + " channels") + " at " +
           std::to_string(rate) + " Hz and keep its length";
}

std::string lower_extension(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension();
    extension.erase(0, 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

bool is_sound_name(const std::string& path) {
    const std::string extension = lower_extension(path);
    return !extension.empty() && !containers_named(extension).empty();
}

int sink_format(const SourceInfo& source, const std::string& path) {
    if (path == "-") {
        return 0;
    }
    const std::string extension = lower_extension(path);
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
    const std::string extension = path == "-" ? "" : lower_extension(path);
    // The end of a number of seconds is no extension.
    const bool named = extension.find_first_not_of("0123456789") != std::string::npos;
    const bool is_own = !source.is_decoded && extension == lower_extension(source.name);
    if (named && !is_own && containers_named(extension).empty()) {
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

}  // namespace korvane::tool
