package com.korvane.vad;

import java.nio.ByteBuffer;
import java.util.Objects;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicReference;

/**
 * Finds speech in 16-bit PCM, frame by frame, and suppresses the noise in it.
 *
 * <pre>{@code
 * short[] frame = new short[160]; // 10 ms at 16 kHz
 * try (KorvaneVad vad = new KorvaneVad()) {
 *     vad.configure(16000, KorvaneVad.ChannelMode.MONO, 160);
 *     while (recorder.read(frame, 0, frame.length) == frame.length) {
 *         if (vad.process(frame)) {
 *             keep(frame); // speech; the noise in it is suppressed
 *         }
 *     }
 * }
 * }</pre>
 *
 * <h2>One in a process</h2>
 * The state of the stream exists once in a process, so one instance can be open at a time; another is
 * refused until this one is closed. One that is dropped without {@link #close} keeps the detector.
 *
 * <h2>Threads</h2>
 * Any thread may call, one at a time: a call while another runs is refused and changes nothing. That
 * includes {@code close}: end the recording thread first, or let it close.
 *
 * <h2>Errors</h2>
 * A call that throws has changed nothing; the stream goes on with the next. Closed, not yet configured,
 * in use by another thread: {@link IllegalStateException}. An argument out of its range: {@link
 * IllegalArgumentException}, naming argument, value and range. Null: {@link NullPointerException}.
 *
 * <h2>Delay</h2>
 * The cleaned samples, and the answer that is made on them, lag behind the samples handed in, by a number
 * of samples per channel that depends on the sampling rate only:
 * <ul>
 * <li>below 25000 Hz, 720: 45 ms at 16 kHz;
 * <li>from 25000 Hz, 864 and the phase of an allpass filter, about 3 below 0.07 of the rate and 55 at a
 *     quarter of it: 18 ms at 48 kHz.
 * </ul>
 * The first 576 cleaned samples per channel of a stream are zeros. Speech is declared after 480 samples
 * per channel above -45 dB of full scale and ends after 19200 at or below -50 dB, counted in whole
 * frames: at 16 kHz 30 ms and 1.2 s, at 48 kHz 10 ms and 400 ms.
 *
 * <h2>Memory</h2>
 * Arrays and buffers stay the caller's; none is used after the call that it was handed to. No call of
 * {@code process} allocates.
 */
public final class KorvaneVad implements AutoCloseable {
    /** Highest sampling rate, in Hz. */
    public static final int MAX_SAMPLE_RATE = 49999;

    /** Longest frame, in samples per channel. */
    public static final int MAX_FRAME_LENGTH = 4096;

    /** What a frame holds; n is the frame length. */
    public enum ChannelMode {
        /** n samples of one channel. */
        MONO(1, 1),
        /** n pairs of a left and a right sample: an {@code AudioRecord} in stereo. */
        INTERLEAVED_STEREO(2, 2),
        /** n samples of the left channel, then n of the right. */
        PLANAR_STEREO(3, 2);

        final int number;
        final int channels;

        ChannelMode(int number, int channels) {
            this.number = number;
            this.channels = channels;
        }
    }

    static {
        System.loadLibrary("korvane_vad_jni");
    }

    private static final AtomicReference<KorvaneVad> OPEN = new AtomicReference<>();

    /** Guards what follows, and the state in the native library. */
    private final AtomicBoolean inUse = new AtomicBoolean();

    private boolean closed;
    private ChannelMode mode; // null until configured
    private int sampleRate;
    private int frameLength;

    /**
     * Opens the detector.
     *
     * @throws IllegalStateException where one is open in this process
     */
    public KorvaneVad() {
        if (!OPEN.compareAndSet(null, this)) {
            throw new IllegalStateException(
                    "a KorvaneVad is open in this process, which can hold one: close it first");
        }
    }

    /**
     * Starts a new stream, with the settings of the last {@link #configure}; before the first there is
     * nothing to start.
     *
     * @throws IllegalStateException where closed or in use by another thread
     */
    public void init() {
        enterOpen();
        try {
            if (mode != null) {
                nativeStart(sampleRate, mode.number, mode.channels * frameLength);
            }
        } finally {
            leave();
        }
    }

    /**
     * Sets what frames look like and starts a new stream. May be called again at any time.
     *
     * @param sampleRate samples per second and channel, 1 to {@link #MAX_SAMPLE_RATE} Hz
     * @param mode how many channels, and how their samples lie in a frame
     * @param frameLength samples per channel in a frame, 1 to {@link #MAX_FRAME_LENGTH}; any number
     * @throws IllegalArgumentException where a number is out of its range
     * @throws IllegalStateException where closed or in use by another thread
     */
    public void configure(int sampleRate, ChannelMode mode, int frameLength) {
        enterOpen();
        try {
            Objects.requireNonNull(mode, "mode");
            requireRange("sampleRate", sampleRate, MAX_SAMPLE_RATE, "Hz");
            requireRange("frameLength", frameLength, MAX_FRAME_LENGTH, "samples per channel");
            nativeStart(sampleRate, mode.number, mode.channels * frameLength);
            this.sampleRate = sampleRate;
            this.mode = mode;
            this.frameLength = frameLength;
        } finally {
            leave();
        }
    }

    /**
     * Processes one frame in place.
     *
     * @param frame one frame of samples, of all channels, laid out as configured; the cleaned samples
     *     take their place, in the same layout, late by the delay
     * @return true for speech
     * @throws IllegalArgumentException where {@code frame} has not the length of a frame
     * @throws IllegalStateException where closed, not configured or in use by another thread
     */
    public boolean process(short[] frame) {
        return process(frame, frame);
    }

    /**
     * Processes one frame from one array to another.
     *
     * @param frame one frame of samples, of all channels, laid out as configured; only read
     * @param cleaned the cleaned samples go here, in the same layout, late by the delay; as long as
     *     {@code frame}, and may be {@code frame} itself
     * @return true for speech
     * @throws IllegalArgumentException where either array has not the length of a frame
     * @throws IllegalStateException where closed, not configured or in use by another thread
     */
    public boolean process(short[] frame, short[] cleaned) {
        enterOpen();
        try {
            requireFrame("frame.length", Objects.requireNonNull(frame, "frame").length, 1);
            requireFrame("cleaned.length", Objects.requireNonNull(cleaned, "cleaned").length, 1);
            return nativeProcess(frame, cleaned);
        } finally {
            leave();
        }
    }

    /**
     * Processes one frame in place in a direct buffer, as {@code AudioRecord.read(ByteBuffer, int)} fills
     * it.
     *
     * @param frame a direct buffer, which may not be read-only. From its position to its limit lie the
     *     bytes of one frame, two to a sample, in the order of the machine whatever the buffer's own order
     *     is; the cleaned samples take their place. Position and limit stay.
     * @return true for speech
     * @throws IllegalArgumentException where {@code frame} is not direct, is read-only, or has not the
     *     bytes of one frame remaining
     * @throws IllegalStateException where closed, not configured or in use by another thread
     */
    public boolean process(ByteBuffer frame) {
        enterOpen();
        try {
            if (!Objects.requireNonNull(frame, "frame").isDirect()) {
                throw new IllegalArgumentException("frame is not a direct buffer");
            }
            if (frame.isReadOnly()) {
                throw new IllegalArgumentException("frame is read-only; it takes the cleaned samples");
            }
            int position = frame.position();
            requireFrame("frame.remaining()", frame.limit() - position, 2);
            return nativeProcess(frame, position);
        } finally {
            leave();
        }
    }

    /**
     * Gives the detector back; another instance can then be opened. Closing again does nothing.
     *
     * @throws IllegalStateException where in use by another thread
     */
    @Override
    public void close() {
        enter();
        try {
            if (!closed) {
                closed = true;
                OPEN.set(null);
            }
        } finally {
            leave();
        }
    }

    /**
     * The version of the native library; needs no instance.
     *
     * @return a text for people
     */
    public static String version() {
        return nativeVersion();
    }

    private void enter() {
        if (!inUse.compareAndSet(false, true)) {
            throw new IllegalStateException("this KorvaneVad is in use by another thread: calls must not overlap");
        }
    }

    private void enterOpen() {
        enter();
        if (closed) {
            leave();
            throw new IllegalStateException("this KorvaneVad is closed");
        }
    }

    private void leave() {
        inUse.set(false);
    }

    private static void requireRange(String name, int value, int max, String unit) {
        if (value < 1 || value > max) {
            throw new IllegalArgumentException(name + " is " + value + ", must be 1 to " + max + " " + unit);
        }
    }

    private void requireFrame(String name, int value, int unitsPerSample) {
        if (mode == null) {
            throw new IllegalStateException("this KorvaneVad is not configured: call configure first");
        }
        int expected = unitsPerSample * mode.channels * frameLength;
        if (value != expected) {
            throw new IllegalArgumentException(name + " is " + value + ", must be " + expected
                    + ": frames of " + frameLength + " samples per channel, " + mode);
        }
    }

    // Bound by name and signature when the library is loaded.

    private static native void nativeStart(int sampleRate, int mode, int frameSamples);

    private static native boolean nativeProcess(short[] frame, short[] cleaned);

    private static native boolean nativeProcess(ByteBuffer frame, int offset);

    private static native String nativeVersion();
}
