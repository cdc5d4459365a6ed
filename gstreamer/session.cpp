#include "session.h"

#include <algorithm>
#include <cstring>

namespace korvane {
namespace {

// Time stamps waver; a step beyond this is a hole in the sound.
constexpr GstClockTime kJitter = 40 * GST_MSECOND;

// What was true of a buffer that came in need not be of the one that goes on.
constexpr auto kNotKept =
    static_cast<GstBufferFlags>(GST_BUFFER_FLAG_GAP | GST_BUFFER_FLAG_DISCONT);

/** How much longer than the delay sound is held back until it is certain whether it is speech: from a
 * segment's first sample to the end of the frame that settles it. */
int64_t hold_of(const KorvaneStreamConfig& config) {
    const auto samples = [&config](int64_t ms) { return ms * config.sampling_rate / 1000; };
    int64_t hold = 2 * config.frame_length + samples(config.pad_start_ms);
    if (config.decision == KORVANE_DECISION_DETECTOR) {
        hold += KORVANE_STREAM_DETECTOR_ONSET;
    } else {
        hold += samples(config.onset_ms);
    }
    const bool is_adaptive = config.decision == KORVANE_DECISION_ADAPTIVE;
    if (is_adaptive) {
        hold += samples(KORVANE_STREAM_SCORE_LAG_MS);
    }
    // What may yet be too short waits for the end. So does adaptive speech at the very beginning of the sound,
    // where there is nothing to move it back into.
    if (config.min_speech_ms > 0 || is_adaptive) {
        hold += config.decision == KORVANE_DECISION_DETECTOR ? KORVANE_STREAM_DETECTOR_HANGOVER
                                                             : samples(config.hangover_ms);
    }
    if (config.min_speech_ms > 0) {
        hold += samples(config.min_speech_ms) + samples(config.min_gap_ms);
    }
    return hold;
}

/** Through a buffer, since a graph's memory need not be aligned for its samples. */
template <typename Sample>
void process_samples(int32_t (*process)(KorvaneStream*, const Sample*, Sample*, int32_t),
                     KorvaneStream* stream, const GstMapInfo& map, int32_t channels,
                     bool keep_result) {
    Sample piece[512];
    const gsize frame_size = static_cast<gsize>(channels) * sizeof(Sample);
    for (gsize at = 0, bytes = 0; at < map.size; at += bytes) {
        bytes = std::min(map.size - at, sizeof piece);
        std::memcpy(piece, map.data + at, bytes);
        process(stream, piece, keep_result ? piece : nullptr,
                static_cast<int32_t>(bytes / frame_size));
        if (keep_result) {
            std::memcpy(map.data + at, piece, bytes);
        }
    }
}

}  // namespace

Session::Session() : held_(gst_adapter_new()) {}

Session::~Session() {
    g_object_unref(held_);
    korvane_stream_destroy(stream_);
}

const char* Session::configure(const Settings& settings, const Format& format) {
    KorvaneStreamConfig config = settings.config;
    config.sampling_rate = format.rate;
    config.channels = format.channels;
    config.frame_length = std::max(format.rate / 100, 1);
    if (settings.silence != kPass && config.max_speech_ms > 0) {
        return "max-speech-ms needs silence=pass: parts are known only when the whole has ended";
    }
    int32_t error = KORVANE_OK;
    KorvaneStream* const stream = korvane_stream_create(&config, &error);
    if (stream == nullptr) {
        return korvane_stream_error_text(error);
    }
    korvane_stream_destroy(stream_);
    stream_ = stream;
    format_ = format;
    clean_ = settings.clean;
    silence_ = settings.silence;
    delay_ = korvane_stream_delay(stream_);
    hold_ = silence_ == kPass ? 0 : hold_of(config);
    // Two marks in a frame at most, of all frames that are held back; long buffers may bring more.
    marks_.reserve(static_cast<size_t>(2 * ((delay_ + hold_) / config.frame_length + 2)));
    running_ = false;
    return nullptr;
}

void Session::begin(GstClockTime time) {
    korvane_stream_reset(stream_);
    gst_adapter_clear(held_);
    marks_.clear();
    begin_ = GST_CLOCK_TIME_IS_VALID(time) ? time : 0;
    in_ = out_ = 0;
    to_drop_ = clean_ ? static_cast<gsize>(delay_) * format_.frame_size() : 0;
    quiet_ = true;
    running_ = true;
    ended_ = false;
}

GstClockTime Session::time_of(int64_t position) const {
    return begin_ + gst_util_uint64_scale(static_cast<guint64>(position), GST_SECOND,
                                          static_cast<guint64>(format_.rate));
}

bool Session::continues_at(GstClockTime time) const {
    if (!GST_CLOCK_TIME_IS_VALID(time)) {
        return true;
    }
    const GstClockTime expected = time_of(in_);
    return (time > expected ? time - expected : expected - time) <= kJitter;
}

bool Session::process(GstBuffer* buffer, bool keep_result) {
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, keep_result ? GST_MAP_READWRITE : GST_MAP_READ)) {
        return false;
    }
    const bool whole = map.size % format_.frame_size() == 0;
    if (whole && format_.is_float) {
        process_samples(korvane_stream_process_float, stream_, map, format_.channels, keep_result);
    } else if (whole) {
        process_samples(korvane_stream_process, stream_, map, format_.channels, keep_result);
    }
    in_ += static_cast<int64_t>(map.size / format_.frame_size());
    gst_buffer_unmap(buffer, &map);
    return whole;
}

void Session::hold_back(GstBuffer* buffer) {
    gst_adapter_push(held_, buffer);
    const gsize dropped = std::min(to_drop_, gst_adapter_available(held_));
    gst_adapter_flush(held_, dropped);
    to_drop_ -= dropped;
}

bool Session::hear(GstBuffer* buffer) {
    const bool read = process(buffer, false);
    out_ = in_;
    return read;
}

bool Session::put(GstBuffer* buffer) {
    if (clean_) {
        buffer = gst_buffer_make_writable(buffer);
    }
    if (!process(buffer, clean_)) {
        gst_buffer_unref(buffer);
        return false;
    }
    hold_back(buffer);
    return true;
}

void Session::end() {
    running_ = false;
    ended_ = true;
    if (!clean_) {
        korvane_stream_end(stream_, nullptr);
        return;
    }
    GstBuffer* const last = gst_buffer_new_allocate(
        nullptr, static_cast<gsize>(delay_) * format_.frame_size(), nullptr);
    GstMapInfo map;
    gst_buffer_map(last, &map, GST_MAP_WRITE);
    if (format_.is_float) {
        korvane_stream_end_float(stream_, reinterpret_cast<float*>(map.data));
    } else {
        korvane_stream_end(stream_, reinterpret_cast<int16_t*>(map.data));
    }
    gst_buffer_unmap(last, &map);
    hold_back(last);
}

void Session::abandon() {
    korvane_stream_end(stream_, nullptr);
    gst_adapter_clear(held_);
    out_ = in_;
    running_ = false;
}

/** The position up to which sound can go on. */
int64_t Session::due() const {
    if (ended_) {
        return in_;
    }
    return std::max<int64_t>(in_ - latency(), 0);
}

void Session::mark(const KorvaneStreamEvent& event) {
    if (silence_ != kPass) {
        marks_.push_back({event.position, event.kind == KORVANE_SPEECH_END});
    }
}

bool Session::take(Piece& piece) {
    auto next = marks_.begin();
    for (; next != marks_.end() && next->position <= out_; ++next) {
        quiet_ = next->silence;
    }
    int64_t until = due();
    if (next != marks_.end()) {
        until = std::min(until, next->position);
    }
    marks_.erase(marks_.begin(), next);
    if (until <= out_) {
        return false;
    }
    piece.buffer = gst_buffer_make_writable(
        gst_adapter_take_buffer(held_, static_cast<gsize>(until - out_) * format_.frame_size()));
    piece.time = time_of(out_);
    piece.duration = time_of(until) - piece.time;
    piece.silence = silence_ != kPass && quiet_;
    GST_BUFFER_PTS(piece.buffer) = piece.time;
    GST_BUFFER_DTS(piece.buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_DURATION(piece.buffer) = piece.duration;
    GST_BUFFER_OFFSET(piece.buffer) = GST_BUFFER_OFFSET_NONE;
    GST_BUFFER_OFFSET_END(piece.buffer) = GST_BUFFER_OFFSET_NONE;
    gst_buffer_unset_flags(piece.buffer, kNotKept);
    if (out_ == 0) {
        gst_buffer_set_flags(piece.buffer, GST_BUFFER_FLAG_DISCONT);
    }
    out_ = until;
    return true;
}

}  // namespace korvane
