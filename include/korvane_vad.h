/**
 * Korvane VAD: streaming voice-activity detection for 16-bit PCM.
 *
 * The host hands over one frame of samples at a time. The library suppresses the noise in it,
 * measures the level of what is left and answers 1 (speech) or 0 (no speech). The cleaned samples
 * come back too.
 *
 * A MONO STREAM AT 16 kHz, FRAMES OF 10 ms
 *
 *     static VadHandle vad;                              zeroed; 16 KiB, so not on a small stack
 *     int16_t frame[160];
 *     VoiceActivityDetectionInit();
 *     VoiceActivityDetectionChannelModeConfig(&vad, 1);
 *     VoiceActivityDetectionSamplingRateConfig(&vad, 16000);
 *     VoiceActivityDetectionFrameLengthConfig(&vad, 160);
 *     VoiceActivityDetectionInOutConfig(&vad, frame);
 *     while (read_samples(frame, 160))
 *         if (VoiceActivityDetectionExe(&vad)) ...       vad.ch0_work holds the cleaned frame
 *
 * CALLING ORDER
 *   VoiceActivityDetectionInit comes first and may be repeated at any time: it starts a new stream.
 *   Then the configuration calls, the channel mode before the frame length (which is halved unless
 *   the mode already stored is 1). The first sampling-rate configuration after an Init sets the
 *   suppressor up for that rate; later ones are stored and logged but do not reach it. So a new
 *   rate takes a new Init. There is nothing to close.
 *
 * ONE DETECTOR PER PROCESS
 *   The handle holds configuration and work buffers; the state of the stream is static inside the
 *   library, shared by all handles and by the calls of korvane_nrss.h. Calls must not overlap. Run
 *   two streams in two processes. The library allocates nothing, starts no thread, keeps no pointer
 *   to a handle or buffer between calls. A frame takes up to 36000 bytes of stack.
 *
 * OWNERSHIP
 *   The host owns the handle and the sample buffer. In modes 1 and 3 the buffer is only read; in
 *   mode 2 the cleaned samples overwrite it.
 *
 * DELAY of the cleaned samples and of the decision made on them, in samples per channel
 *   below 25000 Hz            720  (576 of the stream's ring + 144 of the frames)
 *   25000 to 49999 Hz         864, plus the phase of an allpass filter: about 3 below 0.07 of
 *                             the rate, 55 at a quarter of it
 *   Speech is declared after 480 samples above -45 dB and ends after 19200 samples at or below
 *   -50 dB, counted in whole frames: at 16 kHz 30 ms and 1.2 s, at 48 kHz 10 ms and 400 ms. The
 *   first 576 samples per channel after an Init come back as zeros.
 *
 * RANGES
 *   sampling rate   1..49999 Hz is meant to be used. 0 counts as 1; 50000 to 2^31-1 keep
 *                   the suppressor's rate class (16 kHz's after an Init); 2^31 and more count as
 *                   below 10000 Hz.
 *   frame length    1..4096 samples per channel, any number
 *   channel mode    1 mono, 2 interleaved stereo, 3 planar stereo
 *
 * BAD INPUT
 *   VoiceActivityDetectionExe returns 0 and touches nothing, neither buffers nor state, where the
 *   handle's frame length is outside 1..4096 or its channel mode is not 1, 2 or 3: a frame that
 *   does not fit the work buffers is never written. Pointers are not checked: the handle must be
 *   valid, and so must the sample pointer for a whole frame. Nothing reports an error otherwise.
 *   Before the first Init all state is zero: the suppressor is off, the thresholds are 0 dB.
 *
 * LOG
 *   Init and the configuration calls write one line each with priority 4 (info) and the tag
 *   "OLM_VOR_a64": on Android to the platform's log, elsewhere to stderr, in the form
 *   "I/OLM_VOR_a64(  PID): message". A host that defines
 *       int __android_log_print(int priority, const char* tag, const char* format, ...);
 *   where the dynamic linker finds it receives the messages instead. Nothing is logged while
 *   processing.
 */
#ifndef KORVANE_VAD_H
#define KORVANE_VAD_H

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

/** Size of a work buffer and longest frame, in samples per channel. */
#define KORVANE_VAD_MAX_FRAME 4096

/** Configuration and work buffers of a host; zero it before the first configuration call. */
typedef struct VadHandle {
    int16_t* samples;       /**< the host's frame: mode 1 n samples, mode 2 n pairs L R, mode 3 n
                                 samples of channel 0 and then n of channel 1 */
    int16_t frame_length;   /**< n, samples per channel in a frame */
    uint32_t sampling_rate; /**< Hz, as configured last; stored for the host only */
    uint16_t channel_mode;  /**< 1 mono, 2 interleaved stereo, 3 planar stereo */
    int16_t ch0_work[KORVANE_VAD_MAX_FRAME]; /**< the cleaned channel 0 of the last frame */
    int16_t ch1_work[KORVANE_VAD_MAX_FRAME]; /**< in modes 2 and 3, the cleaned channel 1 */
} VadHandle;

/* ---- Detector ------------------------------------------------------------------------------- */

/** Starts a new stream: resets the decision, the stream and the suppressor (16000 Hz, strongest
 * level). Touches no handle. Returns 0. */
KORVANE_API int VoiceActivityDetectionInit(void);

/** Stores the sampling rate, in Hz. The first call after an Init initialises the suppressor for it;
 * the samples already in the stream stay. Returns 0. */
KORVANE_API int VoiceActivityDetectionSamplingRateConfig(VadHandle* handle, uint32_t rate);

/**
 * Stores the frame length: in mode 1 length itself, otherwise half of it, cut to 16 bits. So pass
 * the total number of samples in a frame, all channels together, after the channel mode is set.
 * Returns 0; a length that VoiceActivityDetectionExe will refuse is stored all the same.
 */
KORVANE_API int VoiceActivityDetectionFrameLengthConfig(VadHandle* handle, uint32_t length);

/** Stores the pointer to the host's frame; it may change from frame to frame. Returns 0. */
KORVANE_API int VoiceActivityDetectionInOutConfig(VadHandle* handle, int16_t* samples);

/** Stores the channel mode, cut to 16 bits: 1 mono, 2 interleaved, 3 planar stereo. Returns 0. */
KORVANE_API int VoiceActivityDetectionChannelModeConfig(VadHandle* handle, int mode);

/** Does nothing; there are no parameters to set. The handle may be null. Returns 0. */
KORVANE_API int VoiceActivityDetectionParamConfig(VadHandle* handle);

/**
 * Sampling rate, frame length, frame pointer and channel mode in one call and in that order. The
 * frame length is halved by the mode the handle held before the call: on a zeroed handle it is
 * halved even for mode 1. Set the mode first, or make the call twice. Returns 0.
 */
KORVANE_API int VoiceActivityDetectionConfigAll(VadHandle* handle, uint32_t rate, uint32_t length,
                                                int16_t* samples, int mode);

/**
 * Processes one frame. The cleaned samples are left in ch0_work (and ch1_work), in mode 2 in the
 * host's buffer as well.
 *
 * @return 1 speech, 0 no speech; 0 too where nothing was processed (frame length outside 1..4096,
 *         unknown mode)
 *
 * The host's buffer must not overlap the handle.
 */
KORVANE_API int VoiceActivityDetectionExe(VadHandle* handle);

/** The version text, zero-terminated; always the same pointer, owned by the library. */
KORVANE_API const char* VoiceActivityDetectionVersion(void);

/* ---- Level decision, callable on its own ---------------------------------------------------- */

/** Resets the level decision: no speech, thresholds -45 dB (enter) and -50 dB (stay), 480 samples
 * of onset, 19200 of hang-over. */
KORVANE_API void OLM_VOR_Init(void);

/** Sets the counts again: 480 and 19200 at every rate (0 and 0 before the first OLM_VOR_Init). The
 * rate is not used. A countdown that is running goes on from where it is. */
KORVANE_API void OLM_VOR_SetFs(int rate);

/**
 * Measures one frame and updates the decision. The level is 20*log10(rms + 1e-7) dB, where full
 * scale is 32768; of two channels the louder counts.
 *
 * @param ch0  n samples, only read
 * @param ch1  n samples, only read, or null for one channel; may be ch0
 * @param n    samples per channel, 1 or more. With n = 0 there is no level: the decision stays and
 *             a running countdown is cleared. A negative n reads nothing and counts as silence.
 * @return 1 speech, 0 no speech
 */
KORVANE_API int OLM_VOR(const int16_t* ch0, const int16_t* ch1, int n);

#ifdef __cplusplus
}
#endif

#endif
