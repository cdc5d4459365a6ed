/**
 * Korvane NRSS: the noise suppressor and its transforms, callable on their own.
 *
 * The suppressor cuts 16-bit PCM into half-overlapping frames of 288 values, estimates the noise
 * power of every spectral bin by minimum statistics (R. Martin, "Noise power spectral density
 * estimation based on optimal smoothing and minimum statistics", IEEE Trans. Speech Audio Process.
 * 9(5), 2001) and weights the bins by magnitude spectral subtraction with over-subtraction
 * (M. Berouti, R. Schwartz, J. Makhoul, "Enhancement of speech corrupted by acoustic noise", ICASSP
 * 1979). Everything is fixed point: the same input gives the same bits on every machine.
 *
 * Most hosts want korvane_vad.h, which runs this suppressor for them. Use this header to clean
 * audio without a speech decision, to drive the block core directly, or to use the transforms.
 *
 * LIFE CYCLE
 *   1. Tolu_NRSS_Init(level, rate)   chooses strength and rate class, prepares the transforms
 *   2. Tolu_NRSS_BufInit()           empties the stream that _Buffered, _EXE and Tolu_NRSS use
 *   3. Tolu_NRSS_EXE / _Buffered     any number of samples a call, as often as needed
 *   There is nothing to close. Either initialisation may be repeated at any time between calls.
 *
 * STATE AND THREADS
 *   All state is static: one stream per process, shared by every call of this header and of
 *   korvane_vad.h. Nothing is allocated, no thread is started, nothing is locked. Calls must not
 *   overlap, not even on different buffers. The library keeps no pointer to a caller's buffer.
 *   A call takes up to 36000 bytes of stack.
 *   When the library is loaded all state is zero: the suppressor is off (level 0), and until
 *   Tolu_NRSS_BufInit has run the stream hands samples straight back, undelayed: unchanged, or
 *   with the suppressor on cleaned only as far as a call completes a block.
 *
 * DELAY, in samples per channel
 *   stream ring (Tolu_NRSS_Buffered, Tolu_NRSS, Tolu_NRSS_EXE)      576, at every level and rate
 *   block core below 25000 Hz                                       144, exactly
 *   block core from 25000 to 49999 Hz                               288, plus the phase of a
 *                                                                   fourth-order allpass: about 3
 *                                                                   samples below 0.07 of the rate,
 *                                                                   55 at a quarter of it
 *   The first 576 samples per channel that the stream returns after Tolu_NRSS_BufInit are zeros.
 *
 * LEVEL OF THE OUTPUT
 *   With every gain open, a tone comes back at 0.5625 of its amplitude below 25000 Hz; on the
 *   two-band path at 1.125 below a quarter of the rate and at 1.0 above it. Samples saturate at
 *   -32768..32767, they never wrap. Every frame loses its DC and Nyquist bins, on the two-band path
 *   those of the low band (DC and a quarter of the rate). A steady DC input is thereby weakened,
 *   not removed: overlapping windows bring part of it back.
 *
 * NOTHING IS CHECKED unless said below. Pointers must be valid for the stated number of samples.
 */
#ifndef KORVANE_NRSS_H
#define KORVANE_NRSS_H

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

/* ---- Initialisation ------------------------------------------------------------------------- */

/**
 * Puts the suppressor into its starting state.
 *
 * @param level  0..9: 0 switches the suppressor off, 1 (at most -3 dB) to 9 (at most -26 dB) set
 *               how far a bin may be attenuated. Values outside are clamped.
 * @param rate   sampling rate in Hz. It selects the rate class: below 10000 (zero and negative
 *               rates included), below 20000, below 25000, below 50000. A rate of 50000 or more
 *               keeps the class chosen last (the first class if none ever was).
 *
 * Level 0 changes the level and the rate class and nothing else; audio then passes untouched, and
 * the rest of the state waits as it was. Every other level resets noise estimate, gains, frames and
 * filter memories, except for the frames of the high band (25000 Hz and more): the first hop after
 * a re-initialisation still overlaps with what they held. The stream's ring is not touched; see
 * Tolu_NRSS_BufInit.
 *
 * For the first frames (62 below 20000 Hz: 0.56 s at 16 kHz; 85 below 25000 Hz; 124 from there on:
 * 0.74 s at 48 kHz) every gain is open while the noise estimate forms; silent frames among them
 * prolong this. The count of frames behind it stops at 2^31 - 1, so a stream that runs for months
 * never falls back into its start-up.
 */
KORVANE_API void Tolu_NRSS_Init(int32_t level, int32_t rate);

/**
 * Over-subtraction weight of each spectral bin, Q15, in the table of the current rate class: 32767
 * (full weight) at bin 0, falling to 16384. Null until the first Tolu_NRSS_Init with a level of 1
 * or more. The gain engine reads entries 0..143, and 144 as well from 25000 Hz on. Read it, do not
 * set it.
 */
KORVANE_API extern const int16_t* osf;

/* ---- Stream: any number of samples a call --------------------------------------------------- */

/** Empties the stream: zeroes the ring and starts a new 576-sample block. Leaves the suppressor as
 * it is. */
KORVANE_API void Tolu_NRSS_BufInit(void);

/**
 * Cleans n samples of one or two channels in place; they come back 576 samples late, plus the
 * core's delay.
 *
 * @param ch0  n samples of channel 0, overwritten
 * @param ch1  n samples of channel 1, overwritten; or the same pointer as ch0 for one channel.
 *             Two distinct arrays must not overlap.
 * @param n    samples per channel, any number; below 1 nothing is read or written
 *
 * After Tolu_NRSS_BufInit the output depends only on the samples, never on how they were cut into
 * calls. The gains are computed from channel 0 and applied to both. A stream may change between
 * one and two channels: channel 1 then goes on from what its ring last held.
 */
KORVANE_API void Tolu_NRSS_Buffered(int16_t* ch0, int16_t* ch1, int n);

/**
 * Cleans one channel, or two interleaved ones, in place, through the same stream.
 *
 * @param samples  mode 1: n samples; mode 2: n pairs L R, 2n samples
 * @param n        samples per channel; below 1 nothing happens
 * @param mode     1 one channel, 2 interleaved pairs; any other value does nothing
 */
KORVANE_API void Tolu_NRSS_EXE(int16_t* samples, int n, int mode);

/** The same as Tolu_NRSS_EXE(samples, n, 2): n interleaved pairs, in place. */
KORVANE_API void Tolu_NRSS(int16_t* samples, int n);

/**
 * Interleaves two channels: dst[2i] = ch0[i], dst[2i + 1] = ch1[i]. Touches no state.
 *
 * @param dst  2n samples, written; must not overlap ch0 or ch1
 * @param ch0  n samples
 * @param ch1  n samples; may be ch0
 * @param n    samples per channel; below 1 nothing is written
 */
KORVANE_API void Tolu_NRSS_Interleave(int16_t* dst, const int16_t* ch0, const int16_t* ch1, int n);

/* ---- Block core: whole sub-blocks, no ring -------------------------------------------------- */

/**
 * Cleans n samples of one or two planar channels in place, without the stream's ring.
 *
 * @param ch0  n samples of channel 0, overwritten
 * @param ch1  n samples of channel 1, overwritten; the same pointer as ch0 means one channel, and
 *             channel 1's state then stays as it was. Two distinct arrays must not overlap.
 * @param n    samples per channel. Whole sub-blocks of 288 samples (576 from 25000 Hz on) are
 *             processed; samples beyond the last whole one are left as they are.
 *
 * At level 0 nothing is touched.
 */
KORVANE_API void Tolu_NRSS_Nonintlvd(int16_t* ch0, int16_t* ch1, int32_t n);

/* ---- Transforms: real DFT of 288 points ----------------------------------------------------- */

/**
 * Prepares the transforms. Tolu_NRSS_Init does this for every level but 0; call it when the
 * transforms are used on their own. Repeating it is harmless. Before it has run the transforms give
 * meaningless numbers, but touch nothing beyond their arguments.
 */
KORVANE_API void fft288_init(void);

/**
 * Forward transform, unnormalised: X[k] = sum of x[n] * exp(-2*pi*i*k*n/288), k = 0..144.
 *
 * @param out  288 int32, the packed spectrum: out[0] = X[0], out[1] = X[144] (both real),
 *             out[2k] = Re X[k] and out[2k + 1] = Im X[k] for k = 1..143
 * @param in   288 int32 samples; within +-2^22 no sum can overflow, beyond it sums wrap
 *
 * A 144-point complex transform by the prime-factor algorithm (16 x 9; I. J. Good 1958,
 * L. H. Thomas 1963) and a split step; products truncate toward minus infinity. out may be in.
 */
KORVANE_API void real_fft288(int32_t* out, const int32_t* in);

/**
 * Inverse transform, unnormalised, with DC and Nyquist at full and every other bin at half weight:
 * x[n] = X[0] + X[144]*(-1)^n + sum over k = 1..143 of
 *        Re X[k]*cos(2*pi*k*n/288) - Im X[k]*sin(2*pi*k*n/288).
 * Forward then inverse returns 144 times a frame whose mean and alternating component are zero.
 *
 * @param out  288 int32 samples
 * @param in   288 int32, a packed spectrum as real_fft288 writes it; within +-2^20 no sum can
 *             overflow, beyond it sums wrap
 *
 * out may be in.
 */
KORVANE_API void real_ifft288(int32_t* out, const int32_t* in);

/**
 * Twiddle factors, 144 pairs (real, imaginary) in Q15: pair k is exp(-2*pi*i*k/576), rounded to
 * nearest, with 32768 stored as 32767. Constant.
 */
KORVANE_API extern const int16_t twd576[144][2];

#ifdef __cplusplus
}
#endif

#endif
