#include "streams/settings.h"

#include <algorithm>
#include <cmath>

namespace korvane {

namespace {

/** What the suppressor does to a sound whose bins are all let through, by the number of bands. */
struct BandGain {
    Level loss;
    int32_t restoring;  // Q14
};
constexpr BandGain kOneBand = {1279, 29127};   // amplitude 9/16
constexpr BandGain kTwoBands = {-262, 14564};  // amplitude 9/8, below a quarter of the rate

constexpr int32_t kMaxRate = 49999;
constexpr int32_t kTwoBandRate = 25000;

int32_t nearest_q15(float score) { return static_cast<int32_t>(std::lround(score * 32768)); }

bool is_score(float score) { return score >= 0 && score <= 1; }

bool is_level(float decibels) { return decibels >= -140 && decibels <= 0; }

Level nearest_level(float decibels) { return static_cast<Level>(std::lround(decibels * kDecibel)); }

int32_t error_in(const KorvaneStreamConfig& c) {
    if (c.size != sizeof c) {
        return KORVANE_ERROR_CONFIG;
    }
    if (c.sampling_rate < 1 || c.sampling_rate > kMaxRate) {
        return KORVANE_ERROR_RATE;
    }
    if (c.channels != 1 && c.channels != 2) {
        return KORVANE_ERROR_CHANNELS;
    }
    if (c.frame_length < 1 || c.frame_length > KORVANE_STREAM_MAX_FRAME) {
        return KORVANE_ERROR_FRAME_LENGTH;
    }
    if (c.decision < KORVANE_DECISION_ADAPTIVE || c.decision > KORVANE_DECISION_DETECTOR) {
        return KORVANE_ERROR_DECISION;
    }
    if (!is_level(c.enter_db) || !is_level(c.stay_db) || c.stay_db > c.enter_db) {
        return KORVANE_ERROR_THRESHOLD;
    }
    if (!is_score(c.enter_score) || !is_score(c.stay_score) || c.stay_score > c.enter_score) {
        return KORVANE_ERROR_SCORE;
    }
    for (const int32_t time : {c.onset_ms, c.hangover_ms, c.min_gap_ms, c.min_speech_ms,
                               c.max_speech_ms, c.pad_start_ms, c.pad_end_ms}) {
        if (time < 0 || time > KORVANE_STREAM_MAX_MS) {
            return KORVANE_ERROR_TIME;
        }
    }
    return KORVANE_OK;
}

}  // namespace

KorvaneStreamConfig default_config(int32_t rate, int32_t channels) {
    KorvaneStreamConfig c = {};
    c.size = sizeof c;
    c.sampling_rate = rate;
    c.channels = channels;
    c.frame_length = std::max<int32_t>(rate / 100, 1);
    c.decision = KORVANE_DECISION_ADAPTIVE;
    c.restore_level = 1;
    c.enter_score = 0.5F;
    c.stay_score = 0.4F;
    c.enter_db = -45;
    c.stay_db = -50;
    c.hangover_ms = 40;
    return c;
}

int32_t settings_of(const KorvaneStreamConfig& c, StreamSettings& settings) {
    const int32_t error = error_in(c);
    if (error != KORVANE_OK) {
        return error;
    }
    const auto samples = [&](int32_t milliseconds) {
        return static_cast<int32_t>(segments::samples_of(milliseconds, c.sampling_rate));
    };
    const BandGain& gain = c.sampling_rate < kTwoBandRate ? kOneBand : kTwoBands;
    StreamSettings s = {};
    s.rate = c.sampling_rate;
    s.channels = c.channels;
    s.frame = c.frame_length;
    s.decision = c.decision;
    s.delay = static_cast<int32_t>(segments::delay_of(c.sampling_rate));
    s.enter_score = nearest_q15(c.enter_score);
    s.stay_score = nearest_q15(c.stay_score);
    s.enter = nearest_level(c.enter_db);
    s.stay = nearest_level(c.stay_db);
    const bool counts = c.decision == KORVANE_DECISION_DETECTOR;
    s.onset = counts ? KORVANE_STREAM_DETECTOR_ONSET : samples(c.onset_ms);
    s.hangover = counts ? KORVANE_STREAM_DETECTOR_HANGOVER : samples(c.hangover_ms);
    s.loss = gain.loss;
    s.restoring = c.restore_level != 0 ? gain.restoring : 0;
    s.timing = segments::timing_of(c);
    s.rules.min_gap = samples(c.min_gap_ms);
    s.rules.min_speech = samples(c.min_speech_ms);
    // At least a sample: none would mean never.
    s.rules.max_speech = c.max_speech_ms > 0 ? std::max<int32_t>(samples(c.max_speech_ms), 1) : 0;
    s.rules.pad_start = samples(c.pad_start_ms);
    s.rules.pad_end = samples(c.pad_end_ms);
    settings = s;
    return KORVANE_OK;
}

}  // namespace korvane
