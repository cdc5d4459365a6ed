/** A folder that goes with the test, and what the tests of sound files share. */
#ifndef KORVANE_TESTS_TEMPORARY_FOLDER_H
#define KORVANE_TESTS_TEMPORARY_FOLDER_H

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "tools/audio/audio_source.h"

namespace korvane::tool {

class TemporaryFolder {
  public:
    TemporaryFolder() : path_(testing::TempDir() + "korvane-vad-test-XXXXXX") {
        EXPECT_NE(mkdtemp(path_.data()), nullptr);
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path() const { return path_; }
    std::string path(const std::string& name) const { return path_ + "/" + name; }
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

  private:
    std::string path_;
};

inline std::vector<int16_t> noise(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<int16_t> samples(count);
    std::generate(samples.begin(), samples.end(), [&] { return static_cast<int16_t>(random()); });
    return samples;
}

/** Writes 32-bit samples in any format of libsndfile. */
inline void write_file(const std::string& path, int format, int rate, int channels,
                       const std::vector<int32_t>& samples) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << path;
    sf_command(file, SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_TRUE);
    const auto count = static_cast<sf_count_t>(samples.size());
    EXPECT_EQ(sf_write_int(file, samples.data(), count), count);
    sf_close(file);
}

inline void write_file(const std::string& path, int format, int rate, int channels,
                       const std::vector<int16_t>& samples) {
    std::vector<int32_t> wide(samples.begin(), samples.end());
    std::transform(wide.begin(), wide.end(), wide.begin(), [](int32_t x) { return x * 65536; });
    write_file(path, format, rate, channels, wide);
}

/** Two bytes a sample, without a header. */
inline std::string raw_bytes(const std::vector<int16_t>& samples, bool big_endian = false) {
    std::string bytes;
    for (const int16_t sample : samples) {
        const auto bits = static_cast<uint16_t>(sample);
        const char low = static_cast<char>(bits & 0xFF);
        const char high = static_cast<char>(bits >> 8);
        bytes += big_endian ? high : low;
        bytes += big_endian ? low : high;
    }
    return bytes;
}

/** All of it, in pieces of changing size, among them some larger than a file is read in. Throws what
 * read throws; `before` then has what came before. */
inline std::vector<int16_t> read_all(AudioSource& source, std::vector<int16_t>* before = nullptr) {
    std::vector<int16_t> all;
    const auto channels = static_cast<std::size_t>(source.info().channels);
    for (std::size_t i = 0;; ++i) {
        constexpr std::size_t kSizes[] = {1, 441, 65536, 65535, 100000, 7, 70000};
        std::vector<int16_t> piece(kSizes[i % std::size(kSizes)] * channels);
        const int64_t count =
            source.read(piece.data(), static_cast<int64_t>(piece.size() / channels));
        if (count == 0) {
            return all;
        }
        all.insert(all.end(), piece.begin(),
                   piece.begin() + count * static_cast<int64_t>(channels));
        if (before != nullptr) {
            *before = all;
        }
    }
}

inline std::vector<int16_t> read_all(const std::string& name, const SourceOptions& options = {}) {
    return read_all(*open_source(name, options));
}

inline SourceOptions raw_options(int rate, int channels) {
    SourceOptions options;
    options.raw = RawFormat{};
    options.raw->rate = rate;
    options.raw->channels = channels;
    return options;
}

/** The message of the Failure that `call` must throw. */
template <typename Call>
std::string failure_of(Call call) {
    try {
        call();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "no failure";
}

}  // namespace korvane::tool

#endif
