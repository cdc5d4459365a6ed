#include "streams/stream.h"

#include <algorithm>

#include "dsp/fixed_point.h"
#include "dsp/gain_mul.h"

namespace korvane {

namespace {

void add_squares(uint64_t& sum, const int16_t* x, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        sum += static_cast<uint32_t>(x[i] * x[i]);
    }
}

/**
 * The suppressor's noise estimate as a level. By Parseval the mean square of a frame under its window,
 * whose squares sum to 144, is the sum of 144 bins' power / 144^2; the spectrum was shifted right
 * before it was squared. Each power has 2 added, which the estimate's factor of 1.15 has enlarged.
 */
Level noise_level(const NrssState& s) {
    if (s.frame_count < s.startup_frames) {
        return kSilence;  // there is no estimate yet
    }
    constexpr int32_t kAdded = 2;
    // A minimum lies below the mean by more than that factor makes good: by so much for white noise of
    // -12 to -32 dB, at 8000 to 24000 Hz and at 32000 and 48000 Hz.
    constexpr Level kBelowMean[] = {794, 538};  // 3.1 and 2.1 dB
    uint64_t sum = 0;
    for (const int32_t* noise = s.noise; noise != s.noise + kBins; ++noise) {
        sum += static_cast<uint64_t>(std::max<int32_t>(*noise - kAdded, 0));
    }
    const bool two_bands = s.rate_class == kTwoBandClass;
    const int shift = two_bands ? kLowBandShift : kFullBandShift;
    const Level least = level_of(sum << (2 * shift), kBins * kBins);
    return least == kSilence ? kSilence : least + kBelowMean[two_bands ? 1 : 0];
}

/** Samples per channel of the input in a hop. */
int32_t hop_of(const Stream& s) {
    return s.detector.suppressor.rate_class == kTwoBandClass ? 2 * kHopSize : kHopSize;
}

/**
 * Adds the scores of n cleaned samples, from sample `at` of their block on. They are one hop late
 * (framing.h), so the score of the same hop of the block has heard one hop more than they hold.
 */
void add_scores(Stream& s, int32_t at, int32_t n) {
    const int32_t hop = hop_of(s);
    for (const int32_t end = at + n; at < end;) {
        const int32_t next = std::min(end, (at / hop + 1) * hop);
        s.evidence += s.score.hops.score[at / hop] * (next - at);
        at = next;
    }
}

void tell(const Stream& s, int32_t kind, bool open, int64_t position, int64_t start) {
    const KorvaneStreamEvent event = {kind, open ? 1 : 0, position, start};
    s.config.on_event(s.config.user, &event);
}

/** The events that nothing to come can change. */
void tell_segments(Stream& s) {
    for (;;) {
        const bool begun = s.segmenter.start_given;
        segments::Segment segment;
        if (!segmenter_take(s.segmenter, segment)) {
            break;
        }
        if (!begun) {
            tell(s, KORVANE_SPEECH_START, false, segment.start, segment.start);
        }
        tell(s, KORVANE_SPEECH_END, segment.open, segment.end, segment.start);
    }
    if (const std::optional<int64_t> start = segmenter_begun(s.segmenter)) {
        tell(s, KORVANE_SPEECH_START, false, *start, *start);
    }
}

/** Speech or not, of a frame with this mean score (Q15) and this level on the input's scale. */
int32_t decide(Stream& s, int32_t score, Level level, int32_t n) {
    const StreamSettings& t = s.settings;
    VorState& count = s.detector.level;
    const bool speech = count.speech != 0;
    switch (t.decision) {
        case KORVANE_DECISION_DETECTOR:
            return VOR_DecideSquares(count, s.squares, t.channels, n);
        case KORVANE_DECISION_FIXED:
            return VOR_Count(count, level > (speech ? t.stay : t.enter), t.frame);
        default:
            return VOR_Count(count, speech ? score > t.stay_score : score >= t.enter_score,
                             t.frame);
    }
}

void end_frame(Stream& s) {
    const int32_t n = s.filled;
    const uint64_t loudest = std::max(s.squares[0], s.squares[1]);
    Level level = level_of(loudest, static_cast<uint32_t>(n));
    level += level == kSilence ? 0 : s.settings.loss;
    KorvaneStreamResult& result = s.last;
    result.position = s.next_position;
    result.length = n;
    const int32_t score = s.evidence / n;
    result.speech = decide(s, score, level, n);
    result.score = s.settings.decision == KORVANE_DECISION_ADAPTIVE
                       ? static_cast<float>(score) / 32768
                       : static_cast<float>(result.speech);
    result.level_db = in_decibels(level);
    result.noise_db = in_decibels(s.noise);
    s.has_result = true;
    s.next_position += n;
    s.filled = 0;
    s.squares[0] = 0;
    s.squares[1] = 0;
    s.evidence = 0;
    if (s.config.on_result != nullptr) {
        s.config.on_result(s.config.user, &result);
    }
    if (s.config.on_event != nullptr) {
        std::optional<segments::Onset> onset;
        segmenter_add(s.segmenter, result.speech != 0, onset);
        tell_segments(s);
    }
}

/** Adds n cleaned samples of each channel, as many as the frame lacks at most, and decides a whole frame. */
void add_samples(Stream& s, const int16_t* ch0, const int16_t* ch1, int32_t n) {
    add_squares(s.squares[0], ch0, n);
    if (s.settings.channels == 2) {
        add_squares(s.squares[1], ch1, n);
    }
    s.filled += n;
    if (s.filled == s.settings.frame) {
        end_frame(s);
    }
}

/** Behind the end of the input are the zeros that flush the ring. A hop that has heard some of them says
 * nothing of the input, a steady tone that breaks off looks like speech: the score before it stays. */
void leave_out_the_silence(Stream& s) {
    HopScores& hops = s.score.hops;
    const int32_t hop = hop_of(s);
    int64_t heard_by_hop = s.next_position + s.filled - s.to_skip + s.settings.delay - kBlockSize;
    for (int32_t i = 0; i < hops.count; ++i) {
        heard_by_hop += hop;
        if (heard_by_hop > s.heard) {
            hops.score[i] = s.last_score;
        }
        s.last_score = hops.score[i];
    }
}

/** Decides what it can of the block just cleaned, which waits in the ring to be handed back. */
void decide_block(Stream& s) {
    const Block block = cleaned_block(s.detector.stream);
    leave_out_the_silence(s);
    int32_t at = s.to_skip;
    s.to_skip = 0;
    // Behind the end of the input are the zeros that flush the ring.
    const int64_t wanted = s.heard - s.next_position - s.filled;
    const auto end = static_cast<int32_t>(std::min<int64_t>(kBlockSize, at + wanted));
    while (at < end) {
        const int32_t n = std::min(end - at, s.settings.frame - s.filled);
        add_scores(s, at, n);
        add_samples(s, block.ch0 + at, block.ch1 + at, n);
        at += n;
    }
}

bool as_the_detector(const Stream& s) { return s.settings.decision == KORVANE_DECISION_DETECTOR; }

}  // namespace

void stream_start(Stream& s, const KorvaneStreamConfig& config, const StreamSettings& settings) {
    s = {};
    s.mark = kStreamMark;
    s.config = config;
    s.settings = settings;
    vad_start(s.detector, settings.rate);
    s.detector.level.onset_samples = settings.onset;
    s.detector.level.hangover_samples = settings.hangover;
    segmenter_init(s.segmenter, settings.timing, settings.rules);
    speech_init(s.score, settings.rate);
    s.to_skip = settings.delay - kBlockSize;
    s.next_position = as_the_detector(s) ? -settings.delay : 0;
    s.noise = kSilence;
}

int32_t stream_room(const Stream& s) {
    const int32_t of_block = kBlockSize - s.detector.stream.fill;
    return as_the_detector(s) ? std::min(of_block, s.settings.frame - s.filled) : of_block;
}

void stream_step(Stream& s, int16_t* ch0, int16_t* ch1, int32_t n) {
    NrssStreamState& ring = s.detector.stream;
    NrssState& suppressor = s.detector.suppressor;
    // Set anew each time, since the record may have been moved.
    suppressor.speech = s.settings.decision == KORVANE_DECISION_ADAPTIVE ? &s.score : nullptr;
    NRSS_Buffered(ring, suppressor, ch0, ch1, n);
    if (as_the_detector(s)) {
        add_samples(s, ch0, ch1, n);
    }
    if (ring.fill == 0) {
        s.noise = noise_level(suppressor);
        if (!as_the_detector(s)) {
            decide_block(s);
        }
        s.score.hops.count = 0;
    }
}

bool stream_lacks_samples(const Stream& s) { return as_the_detector(s) && s.filled > 0; }

void stream_finish(Stream& s) {
    if (s.filled > 0) {
        end_frame(s);
    }
    if (s.config.on_event != nullptr) {
        segmenter_finish(s.segmenter, s.heard);
        tell_segments(s);
    }
}

}  // namespace korvane
