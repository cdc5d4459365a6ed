#include "recording.h"

#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace korvane::tool {
namespace {

TEST(SampleFromFloat, RoundsToNearestAndClips) {
    const double lsb = 1.0 / 32768.0;
    const std::pair<double, int> cases[] = {{0.0, 0},
                                            {-123.49 * lsb, -123},
                                            {-123.51 * lsb, -124},
                                            {0.5 * lsb, 0},
                                            {1.5 * lsb, 2},
                                            {32767.4 * lsb, 32767},
                                            {1.0, 32767},
                                            {-1.0, -32768},
                                            {std::numeric_limits<double>::infinity(), 32767},
                                            {-std::numeric_limits<double>::max(), -32768},
                                            {std::nan(""), 0}};
    for (const auto& [value, sample] : cases) {
        EXPECT_EQ(sample_from_float(value), sample) << value;
    }
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

// Every format that holds the samples without loss must give the same 16 bits. What a format holds
// beyond them must be dropped, not rounded; what it lacks is zero.
TEST(Recording, GivesTheSame16BitsFromEveryLosslessFormat) {
    std::mt19937 random(20240607);
    std::vector<int32_t> full(360002);
    std::generate(full.begin(), full.end(), [&] { return static_cast<int32_t>(random()); });
    full[0] = INT32_MIN;
    full[1] = INT32_MAX;
    const struct {
        int format, bits;
    } cases[] = {{SF_FORMAT_WAV | SF_FORMAT_PCM_16, 16},  {SF_FORMAT_WAV | SF_FORMAT_PCM_24, 32},
                 {SF_FORMAT_WAV | SF_FORMAT_PCM_32, 32},  {SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 32},
                 {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 16}, {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 32},
                 {SF_FORMAT_CAF | SF_FORMAT_ALAC_16, 16}, {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 16},
                 {SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 16},  {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 8},
                 {SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, 8},  {SF_FORMAT_FLAC | SF_FORMAT_PCM_S8, 8}};
    for (const auto& [format, bits] : cases) {
        std::vector<int32_t> samples;
        std::vector<int16_t> expected;
        for (const int32_t sample : full) {
            samples.push_back(sample >> (32 - bits) << (32 - bits));
            expected.push_back(static_cast<int16_t>(samples.back() >> 16));
        }
        for (const int channels : {1, 2}) {
            const File file(format, channels, samples);
            EXPECT_EQ(read_all(file.path()), expected) << std::hex << format << ' ' << channels;
        }
    }
}

}  // namespace
}  // namespace korvane::tool
