package com.korvane.vad;

import java.nio.Buffer;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.ShortBuffer;
import java.util.ArrayDeque;
import java.util.Objects;
import java.util.concurrent.atomic.AtomicBoolean;

/**
 * A stream of sound in which speech is found: any number of them at once, each with a score for every 10 ms, the
 * beginnings and ends of speech, and the cleaned sound.
 *
 * <pre>{@code
 * KorvaneStream.Config config = new KorvaneStream.Config(16000, 1);
 * try (KorvaneStream stream = new KorvaneStream(config, new KorvaneStream.Listener() {
 *     public void onResult(KorvaneStream.Result result) { show(result.score); }
 *     public void onEvent(KorvaneStream.Event event) {
 *         if (event.kind == KorvaneStream.Event.Kind.END) {
 *             keep(event.start, event.position);
 *         }
 *     }
 * })) {
 *     while ((n = recorder.read(samples, 0, samples.length)) > 0) {
 *         stream.process(samples, n);
 *     }
 *     stream.end();
 * }
 * }</pre>
 *
 * <p>What decides, and when results and events come, is said in {@code korvane_stream.h}; this class gives the same
 * answers as that library, to the bit.
 *
 * <h2>Listener</h2>
 * It is called on the thread that calls {@code process} or {@code end}, before that returns: each result, and behind it
 * the events that it settles. What it throws comes out of that call, the first of several, when all samples have been
 * taken and all has been told. It may not call its own stream.
 *
 * <h2>Threads</h2>
 * Different streams may be used by any threads at once. One stream takes one call at a time: another that comes
 * meanwhile, {@code close} included, is refused and changes nothing.
 *
 * <h2>Errors</h2>
 * A call that is refused has changed nothing. Closed, ended or in use: {@link IllegalStateException}. An argument out
 * of its range: {@link IllegalArgumentException} that says what is wrong. Null: {@link NullPointerException}.
 *
 * <h2>Samples</h2>
 * 16 bits, or {@code float} from -1 to 1, which is rounded to 16 bits; what is not a number is silence. Two channels
 * are interleaved: left, right, left, right. Positions and counts are samples per channel from the first one on.
 * Cleaned samples come back {@link #delay} samples late; results and positions do not count that.
 *
 * <h2>Memory</h2>
 * 17 kB for a stream, freed when it is closed or dropped.
 */
public final class KorvaneStream implements AutoCloseable {
    /** How a frame is decided. */
    public enum Decision {
        /** By a score that follows the noise and needs no setting. */
        ADAPTIVE,
        /** By the level of the cleaned frame. */
        FIXED,
        /** As {@link KorvaneVad} does, bit for bit. */
        DETECTOR
    }

    /** What a stream is to do. A stream copies it; later changes do not reach that. */
    public static final class Config {
        // In the order of the native side: rate, channels, frame length, decision, restore level, onset, hang-over,
        // shortest gap, shortest speech, longest speech, padding before, padding behind.
        private final int[] numbers = new int[12];
        // Score to enter and to stay, level to enter and to stay.
        private final float[] thresholds = new float[4];

        /**
         * The defaults for a sampling rate.
         *
         * @param sampleRate samples per second and channel, 1 to 49999 Hz
         * @param channels 1 or 2
         * @throws IllegalArgumentException where a number is out of its range
         */
        public Config(int sampleRate, int channels) {
            refuse(nativeDefaults(sampleRate, channels, numbers, thresholds));
        }

        /**
         * How long a frame is.
         *
         * @param length samples per channel for which there is one result, 1 to 4096; 10 ms unless set
         * @return this
         */
        public Config frameLength(int length) {
            return set(2, length);
        }

        /**
         * What decides.
         *
         * @param decision {@link Decision#ADAPTIVE} unless set
         * @return this
         */
        public Config decision(Decision decision) {
            return set(3, decision.ordinal());
        }

        /**
         * How loud cleaned sound is.
         *
         * @param restore whether cleaned sound comes back as loud as it went in, and not as the suppressor leaves
         *     it; true unless set
         * @return this
         */
        public Config restoreLevel(boolean restore) {
            return set(4, restore ? 1 : 0);
        }

        /**
         * For {@link Decision#ADAPTIVE}.
         *
         * @param enter score at which speech begins, 0 to 1; 0.5 unless set
         * @param stay score above which it goes on, at most {@code enter}; 0.4 unless set
         * @return this
         */
        public Config scores(float enter, float stay) {
            thresholds[0] = enter;
            thresholds[1] = stay;
            return this;
        }

        /**
         * For {@link Decision#FIXED}.
         *
         * @param enter level above which speech begins, -140 to 0 dB of full scale; -45 unless set
         * @param stay level above which it goes on, at most {@code enter}; -50 unless set
         * @return this
         */
        public Config levels(float enter, float stay) {
            thresholds[2] = enter;
            thresholds[3] = stay;
            return this;
        }

        /**
         * Not for {@link Decision#DETECTOR}.
         *
         * @param onset ms above the threshold that declare speech, 0 to an hour
         * @param hangover ms not above it that end speech, 0 to an hour
         * @return this
         */
        public Config times(int onset, int hangover) {
            return set(5, onset).set(6, hangover);
        }

        /**
         * Rules for events.
         *
         * @param minGap shorter gaps are filled, ms; 0 unless set
         * @param minSpeech shorter segments are dropped, ms; 0 unless set
         * @param maxSpeech longer ones are split, ms; 0, unless set, for never
         * @return this
         */
        public Config segments(int minGap, int minSpeech, int maxSpeech) {
            return set(7, minGap).set(8, minSpeech).set(9, maxSpeech);
        }

        /**
         * What is added to each segment.
         *
         * @param start ms before it; 0 unless set
         * @param end ms behind it; 0 unless set
         * @return this
         */
        public Config padding(int start, int end) {
            return set(10, start).set(11, end);
        }

        private Config set(int place, int value) {
            numbers[place] = value;
            return this;
        }
    }

    /** What was decided on one frame. */
    public static final class Result {
        /** Of the frame's first sample. */
        public final long position;
        /** Samples per channel; in the last frame perhaps fewer than in the others. */
        public final int length;
        /** Whether it is speech. */
        public final boolean speech;
        /** 0 to 1, grows with the evidence for speech; with the other decisions 0 or 1. */
        public final float score;
        /** Of the cleaned frame, in dB of full scale; -140 for silence. */
        public final float levelDb;
        /** Of the noise in the input, as the suppressor estimates it, in dB; -140 where there is no estimate. */
        public final float noiseDb;

        Result(long position, int length, boolean speech, float score, float levelDb, float noiseDb) {
            this.position = position;
            this.length = length;
            this.speech = speech;
            this.score = score;
            this.levelDb = levelDb;
            this.noiseDb = noiseDb;
        }
    }

    /** Where speech begins or ends. */
    public static final class Event {
        /** Which of the two. */
        public enum Kind {
            /** Speech begins at {@code position}. */
            START,
            /** Speech has ended before {@code position}. */
            END
        }

        /** Beginning or end. */
        public final Kind kind;
        /** Of the segment's first sample, or of the first one behind it. */
        public final long position;
        /** Of the segment's first sample, with both kinds. */
        public final long start;
        /** With an end: whether the input ended before the speech did. */
        public final boolean open;

        Event(Kind kind, long position, long start, boolean open) {
            this.kind = kind;
            this.position = position;
            this.start = start;
            this.open = open;
        }
    }

    /** Is told what was found. */
    public interface Listener {
        /**
         * A frame has been decided.
         *
         * @param result of that frame
         */
        void onResult(Result result);

        /**
         * Speech has begun or ended.
         *
         * @param event final; they come in the order of their positions
         */
        void onEvent(Event event);
    }

    static {
        System.loadLibrary("korvane_stream_jni");
    }

    private static final String ENDED = "the input of this KorvaneStream has ended: reset begins anew";

    /** Guards all that follows. */
    private final AtomicBoolean inUse = new AtomicBoolean();

    private final Listener listener;
    private final int channels;
    private final int delay;
    private final ArrayDeque<Object> untold = new ArrayDeque<>();
    private ByteBuffer memory; // null when closed
    private boolean ended;
    private boolean speech;

    /**
     * Begins a stream.
     *
     * @param config what it is to do
     * @param listener is told what is found
     * @throws IllegalArgumentException where something in {@code config} is out of its range
     */
    public KorvaneStream(Config config, Listener listener) {
        this.listener = Objects.requireNonNull(listener, "listener");
        channels = config.numbers[1];
        memory = ByteBuffer.allocateDirect(nativeSize());
        refuse(nativeInit(memory, config.numbers, config.thresholds));
        delay = nativeDelay(memory);
    }

    /**
     * Takes samples, any number of them.
     *
     * @param samples of all channels; only read
     * @return whether the last frame that was decided is speech
     * @throws IllegalArgumentException where that is half a pair of samples
     * @throws IllegalStateException where closed, ended or in use
     */
    public boolean process(short[] samples) {
        return process(samples, samples.length);
    }

    /**
     * Takes the first samples of an array, as {@code AudioRecord.read} leaves them.
     *
     * @param samples of all channels; only read
     * @param count how many of them, all channels together, 0 to {@code samples.length}
     * @return whether the last frame that was decided is speech
     * @throws IllegalArgumentException where {@code count} is out of its range, or half a pair
     * @throws IllegalStateException where closed, ended or in use
     */
    public boolean process(short[] samples, int count) {
        return run(samples, samples.length, null, count, count);
    }

    /**
     * Takes samples and gives cleaned ones back.
     *
     * @param samples of all channels; only read
     * @param cleaned as many, {@link #delay} samples late; may be {@code samples} itself
     * @return whether the last frame that was decided is speech
     * @throws IllegalArgumentException where the lengths differ, or are half a pair
     * @throws IllegalStateException where closed, ended or in use
     */
    public boolean process(short[] samples, short[] cleaned) {
        return run(samples, samples.length, Objects.requireNonNull(cleaned, "cleaned"), cleaned.length, samples.length);
    }

    /**
     * Takes samples, any number of them.
     *
     * @param samples of all channels, -1 to 1; only read
     * @return whether the last frame that was decided is speech
     * @throws IllegalArgumentException where that is half a pair of samples
     * @throws IllegalStateException where closed, ended or in use
     */
    public boolean process(float[] samples) {
        return run(samples, samples.length, null, samples.length, samples.length);
    }

    /**
     * Takes samples and gives cleaned ones back.
     *
     * @param samples of all channels, -1 to 1; only read
     * @param cleaned as many, {@link #delay} samples late; may be {@code samples} itself
     * @return whether the last frame that was decided is speech
     * @throws IllegalArgumentException where the lengths differ, or are half a pair
     * @throws IllegalStateException where closed, ended or in use
     */
    public boolean process(float[] samples, float[] cleaned) {
        return run(samples, samples.length, Objects.requireNonNull(cleaned, "cleaned"), cleaned.length, samples.length);
    }

    /**
     * Takes 16-bit samples from a direct buffer, as {@code AudioRecord.read(ByteBuffer, int)} fills it.
     *
     * @param samples a direct buffer; from its position to its limit lie the bytes of the samples of all channels, two
     *     to a sample, in the order of the machine whatever the buffer's own order is. Only read; its position and
     *     limit stay.
     * @return whether the last frame that was decided is speech
     * @throws IllegalArgumentException where the buffer is not direct, or that is half a sample or half a pair
     * @throws IllegalStateException where closed, ended or in use
     */
    public boolean process(ByteBuffer samples) {
        return run(Objects.requireNonNull(samples, "samples"), null, 1);
    }

    /**
     * Takes 16-bit samples from a direct buffer and gives cleaned ones back.
     *
     * @param samples as above
     * @param cleaned as many, {@link #delay} samples late: a direct buffer, not read-only; may be {@code samples}
     *     itself, otherwise it must not overlap it. Its position and limit stay.
     * @return whether the last frame that was decided is speech
     * @throws IllegalArgumentException where a buffer is not direct, {@code cleaned} is read-only, the bytes remaining
     *     differ, or are half a sample or half a pair
     * @throws IllegalStateException where closed, ended or in use
     */
    public boolean process(ByteBuffer samples, ByteBuffer cleaned) {
        return run(Objects.requireNonNull(samples, "samples"), Objects.requireNonNull(cleaned, "cleaned"), 1);
    }

    /**
     * Takes samples from a direct buffer.
     *
     * @param samples a direct buffer in the order of the machine; from its position to its limit lie the samples of
     *     all channels. Only read; its position and limit stay.
     * @return whether the last frame that was decided is speech
     * @throws IllegalArgumentException where the buffer is not direct or has the other order, or that is half a pair
     * @throws IllegalStateException where closed, ended or in use
     */
    public boolean process(ShortBuffer samples) {
        requireMachineOrder("samples", samples);
        return run(samples, null, 2);
    }

    /**
     * Takes samples from a direct buffer and gives cleaned ones back.
     *
     * @param samples as above
     * @param cleaned as many, {@link #delay} samples late: a direct buffer in the order of the machine, not read-only;
     *     may be {@code samples} itself, otherwise it must not overlap it. Its position and limit stay.
     * @return whether the last frame that was decided is speech
     * @throws IllegalArgumentException where a buffer is not direct or has the other order, {@code cleaned} is
     *     read-only, the samples remaining differ, or are half a pair
     * @throws IllegalStateException where closed, ended or in use
     */
    public boolean process(ShortBuffer samples, ShortBuffer cleaned) {
        requireMachineOrder("samples", samples);
        requireMachineOrder("cleaned", cleaned);
        return run(samples, cleaned, 2);
    }

    /**
     * Ends the input: what is still inside is decided. Speech that goes on ends with it.
     *
     * @throws IllegalStateException where closed, ended or in use
     */
    public void end() {
        end((short[]) null);
    }

    /**
     * The same, and gives the last cleaned samples back.
     *
     * @param cleaned {@link #delay} samples per channel; null for none
     * @throws IllegalArgumentException where it has another length
     * @throws IllegalStateException where closed, ended or in use
     */
    public void end(short[] cleaned) {
        end(cleaned, cleaned == null ? -1 : cleaned.length);
    }

    /**
     * The same with float samples.
     *
     * @param cleaned {@link #delay} samples per channel; null for none
     * @throws IllegalArgumentException where it has another length
     * @throws IllegalStateException where closed, ended or in use
     */
    public void end(float[] cleaned) {
        end(cleaned, cleaned == null ? -1 : cleaned.length);
    }

    /**
     * Begins anew with the same configuration.
     *
     * @throws IllegalStateException where closed or in use
     */
    public void reset() {
        enterOpen();
        try {
            nativeReset(memory);
            ended = false;
            speech = false;
        } finally {
            leave();
        }
    }

    /**
     * By how much cleaned samples are late.
     *
     * @return samples per channel: 720 below 25000 Hz, else 867
     */
    public int delay() {
        return delay;
    }

    /**
     * Gives the memory back. Closing again does nothing. It does not end the input: what is still inside is lost.
     *
     * @throws IllegalStateException where in use
     */
    @Override
    public void close() {
        enter();
        memory = null;
        leave();
    }

    /**
     * The version of the native library; needs no stream.
     *
     * @return a text such as 1.0.0
     */
    public static String version() {
        return nativeVersion();
    }

    private boolean run(Object samples, int length, Object cleaned, int cleanedLength, int count) {
        enterUnended();
        try {
            if (count < 0 || count > length) {
                throw new IllegalArgumentException("count is " + count + ", must be 0 to " + length);
            }
            if (cleanedLength != count) {
                throw new IllegalArgumentException("cleaned.length is " + cleanedLength + ", must be " + count);
            }
            requireWholePairs(count);
            if (samples instanceof short[]) {
                nativeProcess(memory, (short[]) samples, (short[]) cleaned, count / channels);
            } else {
                nativeProcess(memory, (float[]) samples, (float[]) cleaned, count / channels);
            }
            tell();
            return speech;
        } finally {
            leave();
        }
    }

    private boolean run(Buffer samples, Buffer cleaned, int bytesPerUnit) {
        enterUnended();
        try {
            int remaining = samples.remaining();
            requireDirect("samples", samples);
            if (cleaned != null) {
                requireDirect("cleaned", cleaned);
                if (cleaned.isReadOnly()) {
                    throw new IllegalArgumentException("cleaned is read-only");
                }
                if (cleaned.remaining() != remaining) {
                    throw new IllegalArgumentException(
                            "cleaned.remaining() is " + cleaned.remaining() + ", must be " + remaining);
                }
            }
            int bytes = remaining * bytesPerUnit;
            if (bytes % 2 != 0) {
                throw new IllegalArgumentException("there are " + bytes + " bytes, which are not whole samples");
            }
            requireWholePairs(bytes / 2);
            nativeProcess(memory, samples, samples.position() * bytesPerUnit, cleaned,
                    cleaned == null ? 0 : cleaned.position() * bytesPerUnit, bytes / 2 / channels);
            tell();
            return speech;
        } finally {
            leave();
        }
    }

    private void end(Object cleaned, int length) {
        enterUnended();
        try {
            if (cleaned != null && length != delay * channels) {
                throw new IllegalArgumentException("cleaned.length is " + length + ", must be " + delay * channels);
            }
            ended = true;
            if (cleaned instanceof float[]) {
                nativeEnd(memory, (float[]) cleaned);
            } else {
                nativeEnd(memory, (short[]) cleaned);
            }
            tell();
        } finally {
            leave();
        }
    }

    private void requireWholePairs(int count) {
        if (count % channels != 0) {
            throw new IllegalArgumentException("there are " + count + " samples, which are not whole pairs");
        }
    }

    private static void requireDirect(String name, Buffer buffer) {
        if (!buffer.isDirect()) {
            throw new IllegalArgumentException(name + " is not a direct buffer");
        }
    }

    private static void requireMachineOrder(String name, ShortBuffer buffer) {
        if (Objects.requireNonNull(buffer, name).order() != ByteOrder.nativeOrder()) {
            throw new IllegalArgumentException(name + " is not in the order of the machine");
        }
    }

    /** All of it, whatever the listener throws; the first that it threw comes out then. */
    private void tell() {
        Throwable thrown = null;
        for (Object next = untold.poll(); next != null; next = untold.poll()) {
            try {
                if (next instanceof Result) {
                    listener.onResult((Result) next);
                } else {
                    listener.onEvent((Event) next);
                }
            } catch (Throwable t) { // in Kotlin it may be of any kind
                thrown = thrown == null ? t : thrown;
            }
        }
        if (thrown != null) {
            KorvaneStream.<RuntimeException>pass(thrown);
        }
    }

    /** Throws what is not declared. */
    @SuppressWarnings("unchecked")
    private static <T extends Throwable> void pass(Throwable thrown) throws T {
        throw (T) thrown;
    }

    private void enter() {
        if (!inUse.compareAndSet(false, true)) {
            throw new IllegalStateException(
                    "this KorvaneStream is in use, by another thread or its own listener: calls must not overlap");
        }
    }

    private void enterOpen() {
        enter();
        if (memory == null) {
            leave();
            throw new IllegalStateException("this KorvaneStream is closed");
        }
    }

    private void enterUnended() {
        enterOpen();
        if (ended) {
            leave();
            throw new IllegalStateException(ENDED);
        }
    }

    private void leave() {
        inUse.set(false);
    }

    private static void refuse(String error) {
        if (error != null) {
            throw new IllegalArgumentException(error);
        }
    }

    // Called by the native side while it processes.

    private void addResult(long position, int length, boolean speech, float score, float levelDb, float noiseDb) {
        this.speech = speech;
        untold.add(new Result(position, length, speech, score, levelDb, noiseDb));
    }

    private void addEvent(boolean end, long position, long start, boolean open) {
        untold.add(new Event(end ? Event.Kind.END : Event.Kind.START, position, start, open));
    }

    // Bound by name and signature when the library is loaded. Those that return a text return null where all is well.

    private static native String nativeDefaults(int sampleRate, int channels, int[] numbers, float[] thresholds);

    private static native int nativeSize();

    private static native String nativeInit(ByteBuffer memory, int[] numbers, float[] thresholds);

    private static native int nativeDelay(ByteBuffer memory);

    private native void nativeProcess(ByteBuffer memory, short[] samples, short[] cleaned, int n);

    private native void nativeProcess(ByteBuffer memory, float[] samples, float[] cleaned, int n);

    private native void nativeProcess(ByteBuffer memory, Buffer samples, int begin, Buffer cleaned, int cleanedBegin,
            int n);

    private native void nativeEnd(ByteBuffer memory, short[] cleaned);

    private native void nativeEnd(ByteBuffer memory, float[] cleaned);

    private static native void nativeReset(ByteBuffer memory);

    private static native String nativeVersion();
}
