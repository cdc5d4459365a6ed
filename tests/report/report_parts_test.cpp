#include <gtest/gtest.h>
#include <sndfile.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "tools/report/audio_clip.h"
#include "tools/report/envelope.h"
#include "tools/report/packing.h"
#include "tools/report/report.h"
#include "tools/report/spectrogram.h"

namespace korvane::tool::report {
namespace {

std::vector<int16_t> noise(std::size_t n, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<int16_t> samples(n);
    for (int16_t& sample : samples) {
        sample = static_cast<int16_t>(random() >> 16U);
    }
    return samples;
}

TEST(Envelope, EachBucketIsTheExtremesOfItsValuesHoweverOftenItWasMerged) {
    const std::vector<int16_t> values = noise(300, 1);
    for (std::size_t n = 1; n <= values.size(); ++n) {
        Envelope envelope(8);
        for (std::size_t i = 0; i < n; ++i) {
            envelope.add(values[i], values[i]);
        }
        const auto bucket = static_cast<std::size_t>(envelope.bucket());
        ASSERT_LE(envelope.count(), 8);
        ASSERT_TRUE(bucket == 1 || envelope.count() > 4) << "coarser than need be at " << n;
        ASSERT_EQ(static_cast<std::size_t>(envelope.count()), (n + bucket - 1) / bucket);
        for (std::size_t i = 0; i * bucket < n; ++i) {
            const auto [low, high] = std::minmax_element(
                values.begin() + static_cast<std::ptrdiff_t>(i * bucket),
                values.begin() + static_cast<std::ptrdiff_t>(std::min(n, (i + 1) * bucket)));
            ASSERT_EQ(envelope.low()[i], *low);
            ASSERT_EQ(envelope.high()[i], *high);
        }
    }
}

TEST(Envelope, BytesAreLowsThenHighsLittleEndian) {
    Envelope envelope(4);
    envelope.add(-2, 0x0102);
    EXPECT_EQ(envelope.bytes(), (std::vector<uint8_t>{0xFE, 0xFF, 0x02, 0x01}));
}

constexpr int64_t kUnlimited = 1 << 24;

/** Of amplitude 32767 in the middle of a row. */
std::vector<int16_t> sine(double frequency, int rate, std::size_t n) {
    std::vector<int16_t> samples(n);
    for (std::size_t i = 0; i < n; ++i) {
        const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / rate;
        samples[i] = static_cast<int16_t>(std::lround(32767 * std::sin(phase)));
    }
    return samples;
}

class SpectrogramOfRate : public testing::TestWithParam<int> {};

TEST_P(SpectrogramOfRate, FullScaleSineReadsZeroInItsRowAndNothingElsewhere) {
    const int rate = GetParam();
    Spectrogram spectrogram(rate, 1, kUnlimited);
    const int bins = spectrogram.window() / 2 / spectrogram.rows();
    const int row = spectrogram.rows() / 3;
    const double frequency = static_cast<double>(row * bins) * rate / spectrogram.window();
    EXPECT_NEAR(spectrogram.frequency(row),
                frequency + (bins - 1) / 2.0 * rate / spectrogram.window(), 1e-9);
    const std::vector<int16_t> samples =
        sine(frequency, rate, 4 * static_cast<std::size_t>(spectrogram.window()));
    spectrogram.add(samples.data(), static_cast<int64_t>(samples.size()));
    spectrogram.finish();
    const int64_t middle = spectrogram.columns() / 2;
    // 32767 is 0.00027 dB below full scale. Rounding to integers moves each sample by at most half
    // a step, so any bin by at most 1 of 32768 (the window's weights sum to the scale of a sine):
    // 0.00027 dB where the sine is, and -90.3 dB where nothing is. Single precision adds about
    // 1e-7 of the sine, which is -140 dB.
    EXPECT_NEAR(spectrogram.decibels(middle, row), 0, 0.001);
    for (int other = 0; other < spectrogram.rows(); ++other) {
        if (std::abs(other - row) > 1) {  // a Hann window reaches one bin to either side
            EXPECT_LT(spectrogram.decibels(middle, other), -90) << other;
        }
    }
}

TEST_P(SpectrogramOfRate, ClickIsInTheColumnOfItsSample) {
    const int rate = GetParam();
    for (const int64_t position : {0, 5, 333, 700, 1022}) {
        Spectrogram spectrogram(rate, 1, kUnlimited);
        std::vector<int16_t> samples(1023, 0);
        samples[static_cast<std::size_t>(position)] = 32767;
        spectrogram.add(samples.data(), 1023);
        spectrogram.finish();
        const int64_t hop = spectrogram.hop();
        ASSERT_EQ(spectrogram.columns(), (1023 + hop - 1) / hop);
        int64_t loudest = 0;
        for (int64_t column = 1; column < spectrogram.columns(); ++column) {
            if (spectrogram.decibels(column, 3) > spectrogram.decibels(loudest, 3)) {
                loudest = column;
            }
        }
        EXPECT_EQ(loudest, position / hop) << "click at " << position;
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, SpectrogramOfRate, testing::Values(1, 8000, 16000, 48000));

TEST(Spectrogram, WiderColumnsAreTheMeanPowerOfTheirWindows) {
    for (const int columns : {1, 4, 5, 8, 9, 17, 30, 33}) {
        Spectrogram fine(8000, 1, kUnlimited);
        Spectrogram coarse(8000, 1, 4 * fine.rows());
        const std::vector<int16_t> samples =
            noise(static_cast<std::size_t>(columns * fine.hop() - 7), 2);
        for (Spectrogram* spectrogram : {&fine, &coarse}) {
            spectrogram->add(samples.data(), static_cast<int64_t>(samples.size()));
            spectrogram->finish();
        }
        ASSERT_EQ(fine.columns(), columns);
        const int64_t merged = coarse.hop() / fine.hop();
        ASSERT_EQ(coarse.columns(), (columns + merged - 1) / merged);
        ASSERT_LE(coarse.columns(), 5);
        for (int64_t column = 0; column < coarse.columns(); ++column) {
            const int64_t end = std::min<int64_t>(columns, (column + 1) * merged);
            for (int row = 0; row < fine.rows(); ++row) {
                double power = 0;
                for (int64_t i = column * merged; i < end; ++i) {
                    power += std::pow(10, fine.decibels(i, row) / 10);
                }
                const double mean = power / static_cast<double>(end - column * merged);
                // Single precision: at each of at most five halvings half a unit in the last
                // place, 2^-24 or 2.6e-7 dB.
                ASSERT_NEAR(coarse.decibels(column, row), 10 * std::log10(mean), 2e-6);
            }
        }
    }
}

TEST(Spectrogram, PiecesMakeNoDifferenceAndASilentChannelHalvesThePower) {
    const std::vector<int16_t> mono = noise(5000, 3);
    std::vector<int16_t> stereo(2 * mono.size(), 0);
    for (std::size_t i = 0; i < mono.size(); ++i) {
        stereo[2 * i + 1] = mono[i];
    }
    Spectrogram whole(16000, 1, kUnlimited);
    whole.add(mono.data(), 5000);
    Spectrogram pieces(16000, 1, kUnlimited);
    Spectrogram half(16000, 2, kUnlimited);
    std::mt19937 random(4);
    for (int64_t at = 0; at < 5000;) {
        const int64_t n = std::min(static_cast<int64_t>(random() % 700), 5000 - at);
        pieces.add(mono.data() + at, n);
        half.add(stereo.data() + 2 * at, n);
        at += n;
    }
    for (Spectrogram* spectrogram : {&whole, &pieces, &half}) {
        spectrogram->finish();
    }
    ASSERT_EQ(pieces.bytes(), whole.bytes());
    ASSERT_EQ(half.columns(), whole.columns());
    for (int64_t column = 0; column < whole.columns(); ++column) {
        for (int row = 0; row < whole.rows(); ++row) {
            // The half is exact; rounding to single precision is 2.6e-7 dB each.
            ASSERT_NEAR(half.decibels(column, row),
                        whole.decibels(column, row) + 10 * std::log10(0.5), 1e-6);
        }
    }
}

TEST(Spectrogram, BytesGoRowAfterRowAndSilenceIsZero) {
    Spectrogram spectrogram(8000, 1, kUnlimited);
    const auto hop = static_cast<std::size_t>(spectrogram.hop());
    std::vector<int16_t> samples(16 * hop, 0);
    const std::vector<int16_t> tone = sine(spectrogram.frequency(40), 8000, 8 * hop);
    std::copy(tone.begin(), tone.end(), samples.begin() + static_cast<std::ptrdiff_t>(8 * hop));
    spectrogram.add(samples.data(), static_cast<int64_t>(samples.size()));
    spectrogram.finish();
    const std::vector<uint8_t> bytes = spectrogram.bytes();
    ASSERT_EQ(bytes.size(), 16U * 128U);
    EXPECT_EQ(bytes[40 * 16 + 2], 0);
    EXPECT_EQ(bytes[40 * 16 + 12],
              static_cast<uint8_t>(std::lround(-Spectrogram::kFloor / Spectrogram::kStep)));
    EXPECT_EQ(bytes[80 * 16 + 12],
              static_cast<uint8_t>(std::lround(
                  (spectrogram.decibels(12, 80) - Spectrogram::kFloor) / Spectrogram::kStep)));
}

TEST(Packing, Base64VectorsOfItsStandard) {
    const std::string plain = "foobar";
    const char* expected[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (std::size_t n = 0; n <= plain.size(); ++n) {
        const std::vector<uint8_t> bytes(plain.begin(),
                                         plain.begin() + static_cast<std::ptrdiff_t>(n));
        EXPECT_EQ(base64(bytes), expected[n]);
    }
    EXPECT_EQ(base64(std::vector<uint8_t>{0xFB, 0xFF, 0xBF}), "+/+/");
}

TEST(Packing, ZlibUnpacksWhatWasDeflated) {
    for (const std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{100000}}) {
        std::vector<uint8_t> bytes;
        for (const int16_t value : noise(n, 5)) {
            bytes.push_back(static_cast<uint8_t>(value & 7));
        }
        const std::vector<uint8_t> packed = deflated(bytes);
        std::vector<uint8_t> again(n + 1);
        uLongf size = again.size();
        ASSERT_EQ(uncompress(again.data(), &size, packed.data(), packed.size()), Z_OK);
        again.resize(size);
        EXPECT_EQ(again, bytes);
    }
}

TEST(AudioClip, HoldsTheVerySamples) {
    for (const int channels : {1, 2}) {
        const std::vector<int16_t> samples = noise(20000 * static_cast<std::size_t>(channels), 6);
        AudioClip clip(11025, channels);
        clip.add(samples.data(), 7000);
        clip.add(samples.data() + 7000 * channels, 13000);
        const std::vector<uint8_t>& bytes = clip.finish();
        std::FILE* file = std::tmpfile();
        ASSERT_NE(file, nullptr);
        std::fwrite(bytes.data(), 1, bytes.size(), file);
        std::rewind(file);
        SF_INFO info{};
        SNDFILE* flac = sf_open_fd(fileno(file), SFM_READ, &info, SF_FALSE);
        ASSERT_NE(flac, nullptr);
        EXPECT_EQ(info.format, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
        EXPECT_EQ(info.samplerate, 11025);
        EXPECT_EQ(info.frames, 20000);
        std::vector<int16_t> again(samples.size());
        EXPECT_EQ(sf_readf_short(flac, again.data(), 20000), 20000);
        EXPECT_EQ(again, samples);
        sf_close(flac);
        std::fclose(file);
    }
}

/** The page of so many frames of noise, or of silence where `seed` is 0. */
std::string page_of(int rate, int frame, int64_t frames, unsigned seed) {
    ResultHeader header;
    header.source.name = "x.wav";
    header.source.rate = rate;
    header.source.channels = 1;
    header.frame = frame;
    Report report(header);
    const std::vector<int16_t> samples = seed == 0
                                             ? std::vector<int16_t>(static_cast<std::size_t>(frame))
                                             : noise(static_cast<std::size_t>(frame), seed);
    for (int64_t i = 0; i < frames; ++i) {
        Frame answer;
        answer.index = i;
        answer.level = -140;
        answer.noisy = answer.cleaned = samples.data();
        answer.noisy_count = answer.cleaned_count = frame;
        report.add(answer);
    }
    return report.page({frames * frame, frames, ""}, {});
}

TEST(Report, LeavesAudioOutWhereItIsTooLongOrTooLargeOrTooSlow) {
    struct Case {
        int rate;
        int frame;
        int64_t frames;
        unsigned seed;
        const char* reason;
    };
    const Case cases[] = {
        {3000, 3000, 1800, 0, ""},  // half an hour to the sample
        {3000, 3000, 1801, 0, "longer than 30 minutes"},
        {2999, 100, 10, 0, "below 3000 Hz"},
        // Noise cannot be packed: 17 Mi samples of 2 bytes, twice, are 68 MiB.
        {48000, 4096, 4352, 7, "more than 64 MiB"},
    };
    for (const Case& c : cases) {
        const std::string page = page_of(c.rate, c.frame, c.frames, c.seed);
        const bool left_out = *c.reason != '\0';
        EXPECT_EQ(page.find("id=\"audio-after\"") == std::string::npos, left_out) << c.reason;
        EXPECT_EQ(page.find("\"no_audio\":\"\"") == std::string::npos, left_out) << c.reason;
        EXPECT_NE(page.find(c.reason), std::string::npos) << c.reason;
    }
}

}  // namespace
}  // namespace korvane::tool::report
