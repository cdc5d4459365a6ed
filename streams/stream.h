/**
 * One stream: the detector's stages, with frames and segments on the input's own time line.
 */
#ifndef KORVANE_STREAMS_STREAM_H
#define KORVANE_STREAMS_STREAM_H

#include <cstdint>

#include "detector/detector.h"
#include "korvane_stream.h"
#include "segments/segments.h"
#include "speech/speech_score.h"
#include "streams/settings.h"

namespace korvane {

/** Nothing in it points into it, so it may be copied and moved. */
struct Stream {
    uint32_t mark;  ///< kStreamMark: that this memory holds a stream
    bool busy;      ///< a call is under way
    bool ended;
    bool has_result;
    KorvaneStreamConfig config;
    StreamSettings settings;
    Detector detector;
    segments::Segmenter segmenter;
    int64_t heard;          ///< samples of the input
    int64_t next_position;  ///< of the frame being filled
    int32_t to_skip;        ///< samples of the first block that lie before the input
    int32_t filled;         ///< cleaned samples in the frame
    uint64_t squares[2];    ///< of each channel of the frame
    int32_t evidence;       ///< sum of the scores of the frame's samples
    Level noise;
    SpeechScore score;   ///< of the decision `adaptive`
    int16_t last_score;  ///< of the last hop that holds the input alone
    KorvaneStreamResult last;
};

/** Changes with the record, so that one of another version is told. */
inline constexpr uint32_t kStreamMark = 0x4B530100 ^ static_cast<uint32_t>(sizeof(Stream));

/** Makes a fresh stream, whatever was there. */
void stream_start(Stream& s, const KorvaneStreamConfig& config, const StreamSettings& settings);

/** Samples per channel, 1..576, that stream_step takes next. */
int32_t stream_room(const Stream& s);

/**
 * Cleans samples and decides the frames that they complete; the callbacks are called. With the decision
 * `detector` a frame is decided when its samples are handed back, with the others as soon as they are
 * clean, with the last sample of a block.
 *
 * @param ch0  [0..n-1] int16 samples, overwritten with cleaned ones as the suppressor leaves them
 * @param ch1  [0..n-1] the same of channel 1; ch0 for one channel
 * @param n    1..stream_room(s)
 */
void stream_step(Stream& s, int16_t* ch0, int16_t* ch1, int32_t n);

/** Whether zeros must follow those that have flushed the delay: the detector decides whole frames. */
bool stream_lacks_samples(const Stream& s);

/** Decides the frame that is left and ends the segments, once the input has ended. */
void stream_finish(Stream& s);

}  // namespace korvane

#endif
