// What the page's picture cannot show: decibels and extremes to the last digit, at any rate and length.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "tools/report/envelope.h"
#include "tools/report/report.h"
#include "tools/report/spectrogram.h"

namespace korvane::tool::report {
namespace {

std::vector<int16_t> noise(int64_t n, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<int16_t> samples(static_cast<std::size_t>(n));
    std::generate(samples.begin(), samples.end(),
                  [&] { return static_cast<int16_t>(random() >> 16U); });
    return samples;
}

TEST(Envelope, BytesAreTheExtremesOfEachBucketHoweverOftenItWasMerged) {
    const std::vector<int16_t> lows = noise(300, 1);
    const std::vector<int16_t> highs = noise(300, 2);
    std::vector<int16_t> pairs;
    for (std::size_t i = 0; i < lows.size(); ++i) {
        pairs.insert(pairs.end(), {lows[i], highs[i]});
    }
    for (int64_t n = 1; n <= 300; ++n) {
        Envelope envelope(8);
        for (int64_t i = 0, piece = 0; i < n; i += piece) {
            piece = std::min(n - i, i % 11 + 1);
            envelope.add(pairs.data() + 2 * i, piece, 2);
        }
        const int64_t bucket = envelope.bucket();
        ASSERT_LE(envelope.count(), 8);
        ASSERT_TRUE(bucket == 1 || envelope.count() > 4) << "coarser than need be at " << n;
        std::vector<int16_t> expected;
        std::vector<int16_t> high;
        for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
            if (i % static_cast<std::size_t>(bucket) == 0) {
                expected.push_back(lows[i]);
                high.push_back(lows[i]);
            }
            expected.back() = std::min({expected.back(), lows[i], highs[i]});
            high.back() = std::max({high.back(), lows[i], highs[i]});
        }
        expected.insert(expected.end(), high.begin(), high.end());
        const std::vector<uint8_t> bytes = envelope.bytes();
        ASSERT_EQ(bytes.size(), 2 * expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            ASSERT_EQ(static_cast<int16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8), expected[i]) << i;
        }
    }
}

constexpr int64_t kUnlimited = 1 << 24;

struct Drawn : Spectrogram {
    Drawn(const std::vector<int16_t>& samples, int rate, int64_t cells = kUnlimited)
        : Spectrogram(rate, 1, cells) {
        add(samples.data(), static_cast<int64_t>(samples.size()));
        finish();
    }
};

constexpr int kRates[] = {1, 8000, 16000, 48000};

TEST(Spectrogram, FullScaleSineReadsZeroInItsRowAndNothingElsewhere) {
    for (const int rate : kRates) {
        SCOPED_TRACE(rate);
        const Spectrogram shape(rate, 1, kUnlimited);
        const double spacing = static_cast<double>(rate) / shape.window();
        const int bins = shape.window() / 2 / shape.rows();
        const int row = shape.rows() / 3;
        const double frequency = row * bins * spacing;
        EXPECT_NEAR(shape.frequency(row), frequency + (bins - 1) / 2.0 * spacing, 1e-9);
        // Silence, and then as much of the sine.
        const int half = 4 * shape.window();
        std::vector<int16_t> samples(2 * static_cast<std::size_t>(half));
        for (int i = half; i < 2 * half; ++i) {
            const double phase = 2 * std::numbers::pi * frequency * i / rate;
            samples[static_cast<std::size_t>(i)] =
                static_cast<int16_t>(std::lround(32767 * std::sin(phase)));
        }
        const Drawn spectrogram(samples, rate);
        const int64_t columns = spectrogram.columns();
        const int64_t middle = 3 * columns / 4;
        // 32767 is 0.00027 dB below full scale. Rounding to integers moves each sample by at most
        // half a step, so any bin by at most 1 of 32768 (the window's weights sum to the scale of a
        // sine): 0.00027 dB where the sine is, and -90.3 dB where nothing is. Single precision adds
        // about 1e-7 of the sine, which is -140 dB.
        EXPECT_NEAR(spectrogram.decibels(middle, row), 0, 0.001);
        for (int other = 0; other < spectrogram.rows(); ++other) {
            if (std::abs(other - row) > 1) {  // a Hann window reaches one bin to either side
                EXPECT_LT(spectrogram.decibels(middle, other), -90) << other;
            }
        }
        const std::vector<uint8_t> bytes = spectrogram.bytes();
        ASSERT_EQ(bytes.size(), static_cast<std::size_t>(columns * spectrogram.rows()));
        EXPECT_EQ(bytes[static_cast<std::size_t>(row * columns + columns / 4)], 0);
        EXPECT_EQ(bytes[static_cast<std::size_t>(row * columns + middle)], 55);  // 2 dB from -110
    }
}

TEST(Spectrogram, ClickIsInTheColumnOfItsSample) {
    for (const int rate : kRates) {
        for (const int64_t position : {0, 5, 333, 700, 1022}) {
            std::vector<int16_t> samples(1023, 0);
            samples[static_cast<std::size_t>(position)] = 32767;
            const Drawn spectrogram(samples, rate);
            const int64_t hop = spectrogram.hop();
            ASSERT_EQ(spectrogram.columns(), (1023 + hop - 1) / hop);
            int64_t loudest = 0;
            for (int64_t column = 1; column < spectrogram.columns(); ++column) {
                if (spectrogram.decibels(column, 3) > spectrogram.decibels(loudest, 3)) {
                    loudest = column;
                }
            }
            EXPECT_EQ(loudest, position / hop) << "click at " << position << ", rate " << rate;
        }
    }
}

TEST(Spectrogram, WiderColumnsAreTheMeanPowerOfTheirWindows) {
    const Spectrogram shape(8000, 1, kUnlimited);
    for (const int columns : {1, 4, 5, 8, 9, 17, 30, 33}) {
        const std::vector<int16_t> samples = noise(columns * shape.hop() - 7, 2);
        const Drawn fine(samples, 8000);
        ASSERT_EQ(fine.columns(), columns);
        ASSERT_GE(Drawn(samples, 8000, 0).columns(), std::min(columns, 2));  // never all in one
        const Drawn coarse(samples, 8000, 4 * shape.rows());
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

TEST(Report, LeavesAudioOutWhereItIsTooLargeOrNotWanted) {
    struct Case {
        EmbeddedAudio audio;
        int rate;
        int64_t frames;  // of 4096 samples
        const char* reason;
    };
    const Case cases[] = {
        {EmbeddedAudio::kMp3, 1999, 100, ""},
        {EmbeddedAudio::kMp3, 48000, 4352, ""},
        {EmbeddedAudio::kFlac, 3000, 100, ""},
        {EmbeddedAudio::kFlac, 2999, 100, "below 3000 Hz"},
        // Noise cannot be packed: 17 Mi samples of 2 bytes, twice, are 68 MiB.
        {EmbeddedAudio::kFlac, 48000, 4352, "more than 64 MiB"},
        {EmbeddedAudio::kNone, 48000, 100, ""},
    };
    const std::vector<int16_t> samples = noise(4096, 7);
    for (const Case& c : cases) {
        ResultHeader header;
        header.source.rate = c.rate;
        header.source.channels = 1;
        header.source.length = c.frames * 4096;
        Report report(header, c.audio);
        for (int64_t i = 0; i < c.frames; ++i) {
            Frame answer;
            answer.index = i;
            answer.level = -140;
            report.add_input(samples.data(), 4096);
            report.add(answer);
            report.add_cleaned(samples.data(), 4096);
        }
        const std::string page = report.page({c.frames * 4096, c.frames, ""}, {});
        const bool none = *c.reason != '\0' || c.audio == EmbeddedAudio::kNone;
        EXPECT_EQ(page.find("id=\"audio-after\"") == std::string::npos, none) << c.rate;
        EXPECT_EQ(page.find("\"no_audio\":\"\"") == std::string::npos, none) << c.rate;
        EXPECT_THAT(report.missing_audio(), testing::HasSubstr(c.reason));
        EXPECT_EQ(report.missing_audio().empty(), *c.reason == '\0');
        EXPECT_NE(page.find(report.missing_audio()), std::string::npos);
    }
}

}  // namespace
}  // namespace korvane::tool::report
