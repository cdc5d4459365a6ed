#include "recording.h"

#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace korvane::tool {
namespace {

TEST(SampleFromFloat, RoundsToNearestAndClips) {
    const double lsb = 1.0 / 32768.0;
    EXPECT_EQ(sample_from_float(0.0), 0);
    EXPECT_EQ(sample_from_float(123 * lsb), 123);
    EXPECT_EQ(sample_from_float(-123.49 * lsb), -123);
    EXPECT_EQ(sample_from_float(-123.51 * lsb), -124);
    EXPECT_EQ(sample_from_float(0.5 * lsb), 0);
    EXPECT_EQ(sample_from_float(1.5 * lsb), 2);
    EXPECT_EQ(sample_from_float(32767.4 * lsb), 32767);
    EXPECT_EQ(sample_from_float(1.0), 32767);
    EXPECT_EQ(sample_from_float(-1.0), -32768);
    EXPECT_EQ(sample_from_float(-7.0), -32768);
    EXPECT_EQ(sample_from_float(std::numeric_limits<double>::infinity()), 32767);
    EXPECT_EQ(sample_from_float(-std::numeric_limits<double>::max()), -32768);
    EXPECT_EQ(sample_from_float(std::nan("")), 0);
}

TEST(SampleFromInt, KeepsTheUpperHalf) {
    EXPECT_EQ(sample_from_int(0x0000FFFF), 0);
    EXPECT_EQ(sample_from_int(-1), -1);
    EXPECT_EQ(sample_from_int(INT32_MAX), 32767);
    EXPECT_EQ(sample_from_int(INT32_MIN), -32768);
}

// A file of one format, written from 32-bit samples, removed at the end.
class File {
  public:
    File(int format, int channels, const std::vector<int32_t>& samples)
        : path_(testing::TempDir() + "recording_test_" + std::to_string(getpid())) {
        SF_INFO info{};
        info.samplerate = 44100;
        info.channels = channels;
        info.format = format;
        SNDFILE* file = sf_open(path_.c_str(), SFM_WRITE, &info);
        EXPECT_NE(file, nullptr);
        if (file != nullptr) {
            sf_command(file, SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_TRUE);
            EXPECT_EQ(sf_write_int(file, samples.data(), static_cast<sf_count_t>(samples.size())),
                      static_cast<sf_count_t>(samples.size()));
            sf_close(file);
        }
    }
    ~File() { std::remove(path_.c_str()); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

// Reads in pieces of changing size, among them some larger than the reader's own of 65536 frames.
std::vector<int16_t> read_all(const std::string& path) {
    Recording recording(path);
    std::vector<int16_t> all;
    for (const int64_t n : {1, 441, 65536, 65535, 100000, 7, 70000, 200000}) {
        std::vector<int16_t> piece(static_cast<std::size_t>(n * recording.channels()));
        const int64_t count = recording.read(piece.data(), n);
        all.insert(all.end(), piece.begin(), piece.begin() + count * recording.channels());
    }
    return all;
}

std::vector<int32_t> noise(std::size_t count) {
    std::mt19937 random(20240607);
    std::vector<int32_t> samples(count);
    for (int32_t& sample : samples) {
        sample = static_cast<int32_t>(random());
    }
    samples[0] = INT32_MIN;
    samples[1] = INT32_MAX;
    return samples;
}

// Every format that holds the samples without loss must give the same 16 bits.
TEST(Recording, GivesTheSame16BitsFromEveryLosslessFormat) {
    const std::vector<int32_t> full = noise(360002);
    std::vector<int16_t> expected(full.size());
    std::vector<int32_t> upper(full.size());
    for (std::size_t i = 0; i < full.size(); ++i) {
        expected[i] = static_cast<int16_t>(full[i] >> 16);
        upper[i] = expected[i] * 65536;
    }
    struct Case {
        int format;
        bool wide;  // holds more than 16 bits: the rest must be dropped, not rounded
    };
    for (const auto& [format, wide] : {Case{SF_FORMAT_WAV | SF_FORMAT_PCM_16, false},
                                       Case{SF_FORMAT_WAV | SF_FORMAT_PCM_24, true},
                                       Case{SF_FORMAT_WAV | SF_FORMAT_PCM_32, true},
                                       Case{SF_FORMAT_AIFF | SF_FORMAT_PCM_24, true},
                                       Case{SF_FORMAT_FLAC | SF_FORMAT_PCM_16, false},
                                       Case{SF_FORMAT_FLAC | SF_FORMAT_PCM_24, true},
                                       Case{SF_FORMAT_CAF | SF_FORMAT_ALAC_16, false},
                                       Case{SF_FORMAT_WAV | SF_FORMAT_FLOAT, false},
                                       Case{SF_FORMAT_WAV | SF_FORMAT_DOUBLE, false}}) {
        for (const int channels : {1, 2}) {
            const File file(format, channels, wide ? full : upper);
            EXPECT_EQ(read_all(file.path()), expected)
                << std::hex << format << ", " << channels << " channels";
        }
    }
}

TEST(Recording, EightBitsFillTheUpperByte) {
    std::vector<int32_t> samples = noise(1000);
    std::vector<int16_t> expected;
    for (int32_t& sample : samples) {
        sample = (sample >> 24) * (1 << 24);
        expected.push_back(static_cast<int16_t>(sample >> 16));
    }
    for (const int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, SF_FORMAT_AIFF | SF_FORMAT_PCM_S8,
                             SF_FORMAT_FLAC | SF_FORMAT_PCM_S8}) {
        const File file(format, 1, samples);
        EXPECT_EQ(read_all(file.path()), expected) << std::hex << format;
    }
}

}  // namespace
}  // namespace korvane::tool
