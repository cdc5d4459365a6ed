// The exported calls: what is checked, how samples lie in a host's memory, and where streams lie.
// korvane_stream.h says what each does.

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "dsp/fixed_point.h"
#include "streams/stream.h"

struct KorvaneStream {
    korvane::Stream record;
};

namespace korvane {

namespace {

static_assert(alignof(KorvaneStream) == KORVANE_STREAM_ALIGNMENT);
static_assert(sizeof(KorvaneStream) % KORVANE_STREAM_ALIGNMENT == 0);
static_assert(sizeof(KorvaneStream) < 32768);

/** A call's samples: sample i of channel c is base[c][i * step]. */
template <class T>
struct Channels {
    T* base[2];
    std::ptrdiff_t step;
};

template <class T>
Channels<T> interleaved(T* x, int32_t channels) {
    return {{x, x == nullptr ? x : x + channels - 1}, channels};
}

template <class T>
Channels<T> planar(T* const* x, int32_t channels) {
    return x == nullptr ? Channels<T>{{nullptr, nullptr}, 1}
                        : Channels<T>{{x[0], x[channels - 1]}, 1};
}

int16_t to_int16(int16_t x) { return x; }
/** The nearest, the higher of two. A sum above 0 is cut off downwards. */
int16_t to_int16(float x) {
    const double scaled = static_cast<double>(x) * 32768;
    if (!(scaled > -32768)) {
        return scaled <= -32768 ? INT16_MIN : int16_t{0};  // not a number
    }
    return saturate16(static_cast<int32_t>(std::min(scaled, 32767.0) + 32768.5) - 32768);
}
void from_int16(int16_t x, int16_t& y) { y = x; }
void from_int16(int16_t x, float& y) { y = static_cast<float>(x) / 32768; }

/** @param gain  Q14, 0 for one */
int16_t restored(int16_t x, int32_t gain) {
    return gain == 0 ? x : saturate16((x * gain + (1 << 13)) >> 14);
}

/** Takes n samples per channel, silence where `in` has no arrays, and gives cleaned ones back where
 * `out` has some. A piece is read before it is written, so they may be the same arrays. */
template <class T>
void hear(Stream& s, const Channels<const T>& in, const Channels<T>& out, int64_t n) {
    int16_t piece[2][kBlockSize];
    const int32_t channels = s.settings.channels;
    for (int64_t at = 0; at < n;) {
        const auto count = static_cast<int32_t>(std::min<int64_t>(n - at, stream_room(s)));
        for (int32_t c = 0; c < channels; ++c) {
            const T* const x = in.base[c] == nullptr ? nullptr : in.base[c] + at * in.step;
            for (int32_t i = 0; i < count; ++i) {
                piece[c][i] = x == nullptr ? int16_t{0} : to_int16(x[i * in.step]);
            }
        }
        stream_step(s, piece[0], piece[channels - 1], count);
        for (int32_t c = 0; c < (out.base[0] != nullptr ? channels : 0); ++c) {
            T* const y = out.base[c] + at * out.step;
            for (int32_t i = 0; i < count; ++i) {
                from_int16(restored(piece[c][i], s.settings.restoring), y[i * out.step]);
            }
        }
        at += count;
    }
}

int32_t answer(const Stream& s) { return s.has_result ? s.last.speech : 0; }

int32_t error_of(const KorvaneStream* stream) {
    if (stream == nullptr) {
        return KORVANE_ERROR_NULL;
    }
    return stream->record.mark == kStreamMark ? KORVANE_OK : KORVANE_ERROR_NO_STREAM;
}

/** What forbids a call that changes the stream. */
int32_t error_of_change(const KorvaneStream* stream) {
    const int32_t error = error_of(stream);
    if (error == KORVANE_OK && stream->record.busy) {
        return KORVANE_ERROR_BUSY;
    }
    return error;
}

int32_t error_of_input(const KorvaneStream* stream, const void* in, int32_t n) {
    const int32_t error = error_of_change(stream);
    if (error != KORVANE_OK) {
        return error;
    }
    if (n < 0) {
        return KORVANE_ERROR_COUNT;
    }
    if (stream->record.ended) {
        return KORVANE_ERROR_ENDED;
    }
    return in == nullptr && n > 0 ? KORVANE_ERROR_NULL : KORVANE_OK;
}

int32_t error_of_end(const KorvaneStream* stream) {
    const int32_t error = error_of_change(stream);
    if (error == KORVANE_OK && stream->record.ended) {
        return KORVANE_ERROR_ENDED;
    }
    return error;
}

/** Whether all arrays are there. */
template <class T>
bool complete(const KorvaneStream* stream, T* const* x) {
    return x[0] != nullptr && x[stream->record.settings.channels - 1] != nullptr;
}

template <class T>
int32_t process(Stream& s, const Channels<const T>& in, const Channels<T>& out, int32_t n) {
    s.busy = true;
    s.heard += n;
    hear(s, in, out, n);
    s.busy = false;
    return answer(s);
}

template <class T>
int32_t end(Stream& s, const Channels<T>& out) {
    const Channels<const T> silence = {{nullptr, nullptr}, 1};
    s.busy = true;
    s.ended = true;
    if (s.heard > 0) {
        hear(s, silence, out, s.settings.delay);
        while (stream_lacks_samples(s)) {
            hear(s, silence, Channels<T>{{nullptr, nullptr}, 1}, 1);
        }
    } else {
        for (int32_t c = 0; c < (out.base[0] != nullptr ? s.settings.channels : 0); ++c) {
            for (int32_t i = 0; i < s.settings.delay; ++i) {
                out.base[c][i * out.step] = T{0};
            }
        }
    }
    stream_finish(s);
    s.busy = false;
    return answer(s);
}

template <class T>
int32_t process_interleaved(KorvaneStream* stream, const T* in, T* out, int32_t n) {
    const int32_t error = error_of_input(stream, in, n);
    if (error != KORVANE_OK) {
        return error;
    }
    const int32_t channels = stream->record.settings.channels;
    return process(stream->record, interleaved(in, channels), interleaved(out, channels), n);
}

template <class T>
int32_t process_planar(KorvaneStream* stream, const T* const* in, T* const* out, int32_t n) {
    const int32_t error = error_of_input(stream, in, n);
    if (error != KORVANE_OK) {
        return error;
    }
    if (n > 0 && (!complete(stream, in) || (out != nullptr && !complete(stream, out)))) {
        return KORVANE_ERROR_NULL;
    }
    const int32_t channels = stream->record.settings.channels;
    return process(stream->record, planar(in, channels), planar(out, channels), n);
}

template <class T>
int32_t end_interleaved(KorvaneStream* stream, T* out) {
    const int32_t error = error_of_end(stream);
    return error != KORVANE_OK
               ? error
               : end(stream->record, interleaved(out, stream->record.settings.channels));
}

template <class T>
int32_t end_planar(KorvaneStream* stream, T* const* out) {
    const int32_t error = error_of_end(stream);
    if (error != KORVANE_OK) {
        return error;
    }
    if (out != nullptr && !complete(stream, out)) {
        return KORVANE_ERROR_NULL;
    }
    return end(stream->record, planar(out, stream->record.settings.channels));
}

KorvaneStream* create(const KorvaneStreamConfig* config, int32_t& error) {
    StreamSettings settings;
    error = config == nullptr ? int32_t{KORVANE_ERROR_NULL} : settings_of(*config, settings);
    if (error != KORVANE_OK) {
        return nullptr;
    }
    void* memory = nullptr;
    if (posix_memalign(&memory, KORVANE_STREAM_ALIGNMENT, sizeof(KorvaneStream)) != 0) {
        error = KORVANE_ERROR_NO_MEMORY;
        return nullptr;
    }
    auto* const stream = static_cast<KorvaneStream*>(memory);
    stream_start(stream->record, *config, settings);
    return stream;
}

}  // namespace

}  // namespace korvane

using namespace korvane;

extern "C" {

int32_t korvane_stream_defaults(KorvaneStreamConfig* config, int32_t rate, int32_t channels) {
    if (config == nullptr) {
        return KORVANE_ERROR_NULL;
    }
    const KorvaneStreamConfig filled = default_config(rate, channels);
    StreamSettings settings;
    const int32_t error = settings_of(filled, settings);
    if (error == KORVANE_OK) {
        *config = filled;
    }
    return error;
}

size_t korvane_stream_size(void) { return sizeof(KorvaneStream); }

int32_t korvane_stream_init(KorvaneStream* memory, size_t size, const KorvaneStreamConfig* config) {
    if (memory == nullptr || config == nullptr) {
        return KORVANE_ERROR_NULL;
    }
    if (size < sizeof *memory) {
        return KORVANE_ERROR_SIZE;
    }
    if (reinterpret_cast<uintptr_t>(memory) % KORVANE_STREAM_ALIGNMENT != 0) {
        return KORVANE_ERROR_ALIGNMENT;
    }
    StreamSettings settings;
    const int32_t error = settings_of(*config, settings);
    if (error == KORVANE_OK) {
        stream_start(memory->record, *config, settings);
    }
    return error;
}

KorvaneStream* korvane_stream_create(const KorvaneStreamConfig* config, int32_t* error) {
    int32_t unwanted = KORVANE_OK;
    return create(config, error == nullptr ? unwanted : *error);
}

// NOLINTNEXTLINE(*-owning-memory,*-no-malloc): the header says whose it is; operator new needs the C++ runtime
void korvane_stream_destroy(KorvaneStream* stream) { std::free(stream); }

int32_t korvane_stream_process(KorvaneStream* stream, const int16_t* in, int16_t* out, int32_t n) {
    return process_interleaved(stream, in, out, n);
}

int32_t korvane_stream_process_float(KorvaneStream* stream, const float* in, float* out,
                                     int32_t n) {
    return process_interleaved(stream, in, out, n);
}

int32_t korvane_stream_process_planar(KorvaneStream* stream, const int16_t* const* in,
                                      int16_t* const* out, int32_t n) {
    return process_planar(stream, in, out, n);
}

int32_t korvane_stream_process_planar_float(KorvaneStream* stream, const float* const* in,
                                            float* const* out, int32_t n) {
    return process_planar(stream, in, out, n);
}

int32_t korvane_stream_end(KorvaneStream* stream, int16_t* out) {
    return end_interleaved(stream, out);
}

int32_t korvane_stream_end_float(KorvaneStream* stream, float* out) {
    return end_interleaved(stream, out);
}

int32_t korvane_stream_end_planar(KorvaneStream* stream, int16_t* const* out) {
    return end_planar(stream, out);
}

int32_t korvane_stream_end_planar_float(KorvaneStream* stream, float* const* out) {
    return end_planar(stream, out);
}

int32_t korvane_stream_last(const KorvaneStream* stream, KorvaneStreamResult* result) {
    const int32_t error = error_of(stream);
    if (error != KORVANE_OK) {
        return error;
    }
    if (result == nullptr) {
        return KORVANE_ERROR_NULL;
    }
    if (!stream->record.has_result) {
        return KORVANE_ERROR_NO_RESULT;
    }
    *result = stream->record.last;
    return KORVANE_OK;
}

int32_t korvane_stream_delay(const KorvaneStream* stream) {
    const int32_t error = error_of(stream);
    return error != KORVANE_OK ? error : stream->record.settings.delay;
}

int32_t korvane_stream_reset(KorvaneStream* stream) {
    const int32_t error = error_of_change(stream);
    if (error == KORVANE_OK) {
        const KorvaneStreamConfig config = stream->record.config;
        const StreamSettings settings = stream->record.settings;
        stream_start(stream->record, config, settings);
    }
    return error;
}

const char* korvane_stream_error_text(int32_t error) {
    switch (error) {
        case KORVANE_OK:
            return "all is well";
        case KORVANE_ERROR_NULL:
            return "a pointer is null";
        case KORVANE_ERROR_CONFIG:
            return "the configuration was not filled by korvane_stream_defaults";
        case KORVANE_ERROR_RATE:
            return "the sampling rate is outside 1..49999 Hz; resample";
        case KORVANE_ERROR_CHANNELS:
            return "there are neither one nor two channels";
        case KORVANE_ERROR_FRAME_LENGTH:
            return "the frame length is outside 1..4096 samples";
        case KORVANE_ERROR_DECISION:
            return "there is no decision of that number";
        case KORVANE_ERROR_THRESHOLD:
            return "a threshold is outside -140..0 dB, or stay_db above enter_db";
        case KORVANE_ERROR_TIME:
            return "a time is negative or longer than an hour";
        case KORVANE_ERROR_SIZE:
            return "the memory is smaller than a stream";
        case KORVANE_ERROR_ALIGNMENT:
            return "the memory is not aligned to 32 bytes";
        case KORVANE_ERROR_NO_MEMORY:
            return "there is no memory left";
        case KORVANE_ERROR_COUNT:
            return "the number of samples is negative";
        case KORVANE_ERROR_NO_STREAM:
            return "the memory holds no stream";
        case KORVANE_ERROR_ENDED:
            return "the input has ended; reset begins anew";
        case KORVANE_ERROR_BUSY:
            return "the stream is in use, by its own callback";
        case KORVANE_ERROR_NO_RESULT:
            return "no frame is whole yet";
        case KORVANE_ERROR_SCORE:
            return "a score is outside 0..1, or stay_score above enter_score";
        default:
            return "not an error of this library";
    }
}

const char* korvane_stream_version(void) { return KORVANE_STREAM_VERSION; }

}  // extern "C"
