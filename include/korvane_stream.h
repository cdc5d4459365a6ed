/**
 * Korvane streams: as many voice-activity detectors in a process as a host wants.
 *
 * The host hands over samples, any number at a time. The library suppresses the noise, decides for
 * each frame of 10 ms whether somebody speaks, and says where on the input's own time line speech
 * begins and ends. The cleaned samples come back on request.
 *
 * This is a library of its own, libkorvane-streams. korvane_vad.h is libKorvaneVAD's, one stream in a
 * process; both can be used side by side and know nothing of each other.
 *
 * A MONO STREAM AT 16 kHz
 *
 *     static void event(void* user, const KorvaneStreamEvent* e) {
 *         if (e->kind == KORVANE_SPEECH_END)
 *             printf("%lld..%lld\n", (long long)e->start, (long long)e->position);
 *     }
 *     ...
 *     KorvaneStreamConfig config;
 *     korvane_stream_defaults(&config, 16000, 1);
 *     config.on_event = event;
 *     KorvaneStream* stream = korvane_stream_create(&config, NULL);
 *     while ((n = read_samples(samples, 500)) > 0)
 *         korvane_stream_process(stream, samples, samples, n);   samples now holds the cleaned sound
 *     korvane_stream_end(stream, NULL);
 *     korvane_stream_destroy(stream);
 *
 * LIFE CYCLE
 *   1. korvane_stream_defaults fills a configuration, the host changes what it wants
 *   2. korvane_stream_create allocates a stream, or korvane_stream_init makes one in memory of the
 *      host's: korvane_stream_size() bytes (less than 32 kB), aligned to KORVANE_STREAM_ALIGNMENT.
 *      Such memory needs no closing, may be moved and copied between calls to places as well aligned,
 *      and a copy is a second stream that goes on from where the first one was.
 *   3. korvane_stream_process, as often as needed
 *   4. korvane_stream_end: the input is over; what is still inside comes out
 *   5. korvane_stream_reset begins anew with the same configuration; korvane_stream_destroy frees
 *      what korvane_stream_create allocated
 *
 * THREADS, MEMORY, LOG
 *   A stream is used by one thread at a time, different streams by any threads at once. Only create
 *   allocates and only destroy frees; no thread is started, nothing is locked, nothing is logged.
 *   Processing takes up to 40000 bytes of stack. The library keeps no pointer to a host's samples.
 *
 * TIME LINE
 *   Positions are samples per channel from the first sample that went in, 64-bit. The suppressor is
 *   late by korvane_stream_delay() samples: 720 below 25000 Hz, 867 from there on. That is taken out
 *   of every position, but not out of the cleaned samples that a call gives back: the first `delay`
 *   ones come before the input, and korvane_stream_end gives the last ones.
 *   Results, events and cleaned samples depend on the samples alone, never on how they were cut into
 *   calls, nor on the layout or the format they came in, nor on the machine.
 *
 * RESULTS
 *   One for each frame of frame_length samples: 0.., frame_length.., 2 * frame_length.. and so on;
 *   the last one holds what is left. Sound is worked on in blocks of 576 samples per channel, and the
 *   result for a frame comes with the end of a block, before the cleaned samples do: delay - 576 to
 *   delay samples behind the frame's last one (9 to 45 ms at 16 kHz), or with korvane_stream_end.
 *   With KORVANE_DECISION_DETECTOR frames lie otherwise, see there, and the result comes with the
 *   frame's last cleaned sample.
 *   Levels are in dB, 0 dB being the mean square 32768^2 of the loudest square wave, of the louder
 *   channel, and as loud as the input was: what the suppressor takes off every sound (see
 *   restore_level) is added, whether or not it is restored in the samples.
 *
 * DECISIONS
 *   KORVANE_DECISION_ADAPTIVE  the default. A score between 0 and 1 from how the spectrum moves above
 *                              the noise: speech begins at enter_score and goes on above stay_score.
 *                              It follows the noise and needs no setting. Voices and music that one
 *                              does not want to hear look like speech to it.
 *   KORVANE_DECISION_FIXED     the level of the cleaned frame: speech begins above enter_db and goes
 *                              on above stay_db.
 *   KORVANE_DECISION_DETECTOR  the answers of VoiceActivityDetectionExe in korvane_vad.h, bit for
 *                              bit: its thresholds and its counts of samples, which are not times.
 *                              Frames are those of that call: the first begins at position -delay,
 *                              and the last one is filled up with zeros.
 *   In the first two, frames above the threshold for `onset_ms` declare speech, frames that are not
 *   for `hangover_ms` end it, both counted in whole frames, one at least.
 *
 * EVENTS
 *   Speech is a list of segments. Each gives two events: where it begins and where it ends. Segments
 *   are made from the frames' decisions in this order:
 *   1. Onset and hang-over are taken out again: a segment holds what was above the threshold. With
 *      KORVANE_DECISION_ADAPTIVE it is also moved back by 40 ms, the sound that the score uses before
 *      it answers (by three times onset and hang-over together at most).
 *   2. Segments closer than min_gap_ms become one.
 *   3. Segments shorter than min_speech_ms are dropped.
 *   4. pad_start_ms and pad_end_ms are added, within the input. Segments that then touch become one.
 *   5. Segments longer than max_speech_ms are split into the fewest parts that fit, equal within one
 *      sample.
 *   Positions are final and in order. A recording gives the same events as the same samples live.
 *   A start comes as soon as its segment is certain:
 *   - with the defaults, with the result that declares the speech;
 *   - with min_speech_ms above the onset, later by min_speech_ms, min_gap_ms and the hang-over at most;
 *   - in the first 40 ms of the adaptive decision, later by the hang-over at most.
 *   An end comes with the result that ends the speech, hangover_ms behind it, or later by
 *     max(min_gap_ms, pad_start_ms + pad_end_ms) - hangover_ms - onset_ms
 *   where that is above 0. With max_speech_ms parts are known when the whole segment has ended: then
 *   their events follow each other, each START but the first together with the END before it.
 *
 * ERRORS
 *   Calls return 0 or more where all is well and a negative KORVANE_ERROR_... otherwise; then nothing
 *   has been touched, neither the stream nor the host's buffers. Null pointers, sizes, rates, counts
 *   and times are checked, and so is whether memory holds a stream. Pointers must be valid for the
 *   stated number of samples.
 */
#ifndef KORVANE_STREAM_H
#define KORVANE_STREAM_H

#include <stddef.h>
#include <stdint.h>

#if defined(KORVANE_API)
/* the host says how names are declared */
#elif defined(__GNUC__)
#define KORVANE_API __attribute__((visibility("default")))
#else
#define KORVANE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Of this header; korvane_stream_version says the library's. The first number changes where hosts must. */
#define KORVANE_STREAM_VERSION "1.0.0"

/** Of memory for korvane_stream_init, in bytes. */
#define KORVANE_STREAM_ALIGNMENT 32

/** Longest frame, in samples per channel. */
#define KORVANE_STREAM_MAX_FRAME 4096

/** How late the decision `adaptive` is, in ms: events count that in. */
#define KORVANE_STREAM_SCORE_LAG_MS 40

/** What the decision `detector` counts, in samples, before it answers speech and before it ends it. */
#define KORVANE_STREAM_DETECTOR_ONSET 480
#define KORVANE_STREAM_DETECTOR_HANGOVER 19200

/** Longest time in a configuration, in ms: an hour. */
#define KORVANE_STREAM_MAX_MS 3600000

/** What was wrong. The numbers stay. */
enum {
    KORVANE_OK = 0,
    KORVANE_ERROR_NULL = -1,         /**< a pointer is null */
    KORVANE_ERROR_CONFIG = -2,       /**< the record was not filled by korvane_stream_defaults */
    KORVANE_ERROR_RATE = -3,         /**< sampling rate outside 1..49999 Hz: resample */
    KORVANE_ERROR_CHANNELS = -4,     /**< neither one nor two channels */
    KORVANE_ERROR_FRAME_LENGTH = -5, /**< frame length outside 1..4096 samples */
    KORVANE_ERROR_DECISION = -6,     /**< no decision of that number */
    KORVANE_ERROR_THRESHOLD = -7,    /**< a threshold outside -140..0 dB, or stay above enter */
    KORVANE_ERROR_TIME = -8,         /**< a time outside 0..KORVANE_STREAM_MAX_MS */
    KORVANE_ERROR_SIZE = -9,         /**< memory smaller than korvane_stream_size() */
    KORVANE_ERROR_ALIGNMENT = -10,   /**< memory not aligned to KORVANE_STREAM_ALIGNMENT */
    KORVANE_ERROR_NO_MEMORY = -11,   /**< the system gave none */
    KORVANE_ERROR_COUNT = -12,       /**< a negative number of samples */
    KORVANE_ERROR_NO_STREAM = -13,   /**< the memory holds no stream, or one of another version */
    KORVANE_ERROR_ENDED = -14,       /**< the input has ended; only a reset begins anew */
    KORVANE_ERROR_BUSY = -15,        /**< called from a callback of the same stream */
    KORVANE_ERROR_NO_RESULT = -16,   /**< no frame is whole yet */
    KORVANE_ERROR_SCORE = -17        /**< a score outside 0..1, or stay above enter */
};

/** How a frame is decided, see DECISIONS above. */
enum { KORVANE_DECISION_ADAPTIVE = 0, KORVANE_DECISION_FIXED = 1, KORVANE_DECISION_DETECTOR = 2 };

/** Kinds of events. */
enum { KORVANE_SPEECH_START = 1, KORVANE_SPEECH_END = 2 };

/** What was decided on one frame. */
typedef struct KorvaneStreamResult {
    int64_t position; /**< of the frame's first sample */
    int32_t length;   /**< samples per channel: the frame length, in the last frame perhaps fewer */
    int32_t speech;   /**< 1 speech, 0 none */
    float score;      /**< 0..1, grows with the evidence for speech, mean over the frame; with the
                           decisions `fixed` and `detector` 1 for speech, 0 for none */
    float level_db;   /**< of the cleaned frame, -140 for silence */
    float noise_db;   /**< of the noise in the input, as the suppressor estimates it in channel 0,
                           from 25000 Hz on below a quarter of the rate. -140 until it has an
                           estimate, and where noise is too faint for it: below about -57 dB */
} KorvaneStreamResult;

/** Where speech begins or ends. */
typedef struct KorvaneStreamEvent {
    int32_t kind;     /**< KORVANE_SPEECH_START or KORVANE_SPEECH_END */
    int32_t open;     /**< with an end: 1 where the input ended before the speech did */
    int64_t position; /**< of the segment's first sample, or of the first one behind it */
    int64_t start;    /**< of the segment's first sample, with both kinds */
} KorvaneStreamEvent;

/** Of a stream. Filled by korvane_stream_defaults; the defaults stand in brackets. */
typedef struct KorvaneStreamConfig {
    uint32_t size;         /**< of this record, as the library knows it; not to be changed */
    int32_t sampling_rate; /**< Hz, 1..49999 */
    int32_t channels;      /**< 1 or 2. The suppressor hears channel 0 and treats both alike. */
    int32_t frame_length;  /**< of a result, 1..4096 samples per channel [10 ms, rounded down] */
    int32_t decision;      /**< [KORVANE_DECISION_ADAPTIVE] */
    int32_t restore_level; /**< nonzero: cleaned samples come back as loud as they went in,
                                saturated; else as the suppressor leaves them, which below 25000 Hz
                                is 5.0 dB lower and from there on 1.0 dB higher [1] */
    float enter_score;     /**< decision `adaptive` only: speech begins here [0.5] */
    float stay_score;      /**< and goes on above; at most enter_score [0.4] */
    float enter_db;        /**< decision `fixed` only: speech begins above [-45] */
    float stay_db;         /**< and goes on above; at most enter_db [-50] */
    int32_t onset_ms;      /**< not with the decision `detector` [0] */
    int32_t hangover_ms;   /**< not with the decision `detector` [40] */
    int32_t min_gap_ms;    /**< events: shorter gaps are filled [0] */
    int32_t min_speech_ms; /**< shorter segments are dropped [0] */
    int32_t max_speech_ms; /**< longer ones are split; 0 never [0] */
    int32_t pad_start_ms;  /**< added before a segment [0] */
    int32_t pad_end_ms;    /**< added behind it [0] */
    void* user;            /**< handed to the callbacks [null] */
    /** Called for each frame, in order, from within process and end; null for none [null]. It may
     * read the stream's last result, but make no other call on this stream, and must return. */
    void (*on_result)(void* user, const KorvaneStreamResult* result);
    /** Called for each event, behind the result of the frame that settles it [null]. */
    void (*on_event)(void* user, const KorvaneStreamEvent* event);
} KorvaneStreamConfig;

/** A stream: memory of which only the library knows what is in it. */
typedef struct KorvaneStream KorvaneStream;

/* ---- Making a stream ------------------------------------------------------------------------ */

/**
 * Fills a configuration with what suits most hosts.
 *
 * @param rate      Hz, 1..49999
 * @param channels  1 or 2
 * @return          KORVANE_OK, KORVANE_ERROR_NULL, _RATE, _CHANNELS
 */
KORVANE_API int32_t korvane_stream_defaults(KorvaneStreamConfig* config, int32_t rate,
                                            int32_t channels);

/** Bytes of memory that a stream takes, whatever its configuration; a multiple of
 * KORVANE_STREAM_ALIGNMENT, less than 32768. */
KORVANE_API size_t korvane_stream_size(void);

/**
 * Makes a stream in memory of the host's. What was in it does not matter.
 *
 * @param memory  [0..size-1], aligned to KORVANE_STREAM_ALIGNMENT
 * @param size    korvane_stream_size() bytes or more
 * @return        KORVANE_OK, KORVANE_ERROR_NULL, _SIZE, _ALIGNMENT, or what is wrong with the
 *                configuration
 */
KORVANE_API int32_t korvane_stream_init(KorvaneStream* memory, size_t size,
                                        const KorvaneStreamConfig* config);

/**
 * Allocates a stream and makes it.
 *
 * @param error  receives KORVANE_OK or the error; may be null
 * @return       the stream, to be given to korvane_stream_destroy; null where something is wrong
 */
KORVANE_API KorvaneStream* korvane_stream_create(const KorvaneStreamConfig* config, int32_t* error);

/** Frees a stream that korvane_stream_create made. Null does nothing. */
KORVANE_API void korvane_stream_destroy(KorvaneStream* stream);

/* ---- Using it ------------------------------------------------------------------------------- */

/**
 * Takes n samples per channel and calls the callbacks for the frames and events that they complete.
 *
 * One channel, or two interleaved: n samples, or n pairs L R.
 *
 * @param in   [0..n*channels-1] int16, only read
 * @param out  [0..n*channels-1] receives cleaned samples, `delay` samples late; may be `in` itself,
 *             otherwise it must not overlap it; null for none
 * @param n    samples per channel, 0 or more
 * @return     1 or 0: whether the last frame told was speech (0 before the first), or an error:
 *             KORVANE_ERROR_NULL (stream, or `in` with n above 0), _NO_STREAM, _COUNT, _ENDED, _BUSY
 */
KORVANE_API int32_t korvane_stream_process(KorvaneStream* stream, const int16_t* in, int16_t* out,
                                           int32_t n);

/** The same with samples of -1..1; beyond that they saturate, and what is not a number is silence.
 * They are rounded to 16 bits, so 32768 times the sample is what counts. */
KORVANE_API int32_t korvane_stream_process_float(KorvaneStream* stream, const float* in, float* out,
                                                 int32_t n);

/** The same with an array for each channel: in[c] [0..n-1], c = 0..channels-1. Each out[c] may be
 * in[c], otherwise no array overlaps another. The array of pointers `out` may be null, but none in it. */
KORVANE_API int32_t korvane_stream_process_planar(KorvaneStream* stream, const int16_t* const* in,
                                                  int16_t* const* out, int32_t n);

/** The same with float samples. */
KORVANE_API int32_t korvane_stream_process_planar_float(KorvaneStream* stream,
                                                        const float* const* in, float* const* out,
                                                        int32_t n);

/**
 * The input is over. Calls the callbacks for all that is still to come; speech that goes on ends with
 * the input, and its event says so. An input of no samples has no results.
 *
 * @param out  [0..delay*channels-1] receives the last cleaned samples, interleaved; null for none
 * @return     1 or 0 as from process; KORVANE_ERROR_NULL (stream), _NO_STREAM, _ENDED, _BUSY
 */
KORVANE_API int32_t korvane_stream_end(KorvaneStream* stream, int16_t* out);

/** The same with float samples. */
KORVANE_API int32_t korvane_stream_end_float(KorvaneStream* stream, float* out);

/** The same with an array for each channel, out[c] [0..delay-1]. */
KORVANE_API int32_t korvane_stream_end_planar(KorvaneStream* stream, int16_t* const* out);

/** The same with float samples. */
KORVANE_API int32_t korvane_stream_end_planar_float(KorvaneStream* stream, float* const* out);

/** The result of the last whole frame. Returns KORVANE_OK, KORVANE_ERROR_NULL, _NO_STREAM,
 * _NO_RESULT. */
KORVANE_API int32_t korvane_stream_last(const KorvaneStream* stream, KorvaneStreamResult* result);

/** Samples per channel by which cleaned samples are late: 720 or 867; or KORVANE_ERROR_NULL,
 * _NO_STREAM. */
KORVANE_API int32_t korvane_stream_delay(const KorvaneStream* stream);

/** Begins anew: as after korvane_stream_init with the same configuration. Returns KORVANE_OK,
 * KORVANE_ERROR_NULL, _NO_STREAM, _BUSY. */
KORVANE_API int32_t korvane_stream_reset(KorvaneStream* stream);

/* ---- About ---------------------------------------------------------------------------------- */

/** One line of English for an error, without a full stop; static. Numbers that are no error get a
 * line that says so. */
KORVANE_API const char* korvane_stream_error_text(int32_t error);

/** The library's version, such as "1.0.0"; static. */
KORVANE_API const char* korvane_stream_version(void);

#ifdef __cplusplus
}
#endif

#endif
