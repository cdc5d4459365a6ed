// The timing that segments are aligned by, against the detector itself.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "korvane_vad.h"
#include "segments/segments.h"

namespace korvane::segments {
namespace {

/** Frames of constant level, -20 dB or digital silence, straight into the level decision. */
class LevelDecision {
  public:
    explicit LevelDecision(int frame)
        : frame_(frame),
          loud_(static_cast<std::size_t>(frame), int16_t{3277}),
          quiet_(static_cast<std::size_t>(frame), int16_t{0}) {
        OLM_VOR_Init();
    }
    bool operator()(bool loud) {
        return OLM_VOR((loud ? loud_ : quiet_).data(), nullptr, frame_) == 1;
    }
    /** Samples of frames of one kind until the answer is `loud` too, that frame included. */
    int64_t samples_until(bool loud) {
        int64_t samples = frame_;
        while ((*this)(loud) != loud) {
            samples += frame_;
        }
        return samples;
    }

  private:
    int frame_;
    std::vector<int16_t> loud_;
    std::vector<int16_t> quiet_;
};

TEST(Timing, OnsetAndHangoverAreTheDetectorsAtEveryFrameLength) {
    for (int frame = 1; frame <= 4096; ++frame) {
        LevelDecision decision(frame);
        const Timing timing = timing_of(16000, frame);
        ASSERT_EQ(timing.frame, frame);
        ASSERT_EQ(decision.samples_until(true), timing.onset) << "frame " << frame;
        ASSERT_EQ(decision.samples_until(false), timing.hangover) << "frame " << frame;
    }
}

/** Where a smooth pulse at sample 2000 is in the cleaned stream, relative to where it went in. */
int delay_of_a_pulse(int rate, int frame) {
    const auto handle = std::make_unique<VadHandle>();
    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(handle.get(), 1);
    VoiceActivityDetectionSamplingRateConfig(handle.get(), static_cast<uint32_t>(rate));
    VoiceActivityDetectionFrameLengthConfig(handle.get(), static_cast<uint32_t>(frame));
    constexpr int kPosition = 2000;
    std::vector<int16_t> cleaned;
    std::vector<int16_t> samples(static_cast<std::size_t>(frame));
    for (int position = 0; position < 2 * kPosition; position += frame) {
        for (int i = 0; i < frame; ++i) {
            // Below 2 kHz but for one part in a thousand, and at its top a sample aside is 156
            // lower, far more than the transforms round away.
            const double x = (position + i - kPosition) / 8.0;
            samples[static_cast<std::size_t>(i)] =
                static_cast<int16_t>(std::lround(20000 * std::exp(-x * x / 2)));
        }
        VoiceActivityDetectionInOutConfig(handle.get(), samples.data());
        VoiceActivityDetectionExe(handle.get());
        cleaned.insert(cleaned.end(), handle->ch0_work, handle->ch0_work + frame);
    }
    const auto top = std::max_element(cleaned.begin(), cleaned.end());
    return static_cast<int>(top - cleaned.begin()) - kPosition;
}

TEST(Timing, DelayIsThatOfTheCleanedSound) {
    for (const int rate : {8000, 16000, 24999, 25000, 44100, 49999}) {
        for (const int frame : {1, 160, 577, 4096}) {
            EXPECT_EQ(delay_of_a_pulse(rate, frame), timing_of(rate, frame).delay)
                << rate << " Hz, frames of " << frame;
        }
    }
}

}  // namespace
}  // namespace korvane::segments
