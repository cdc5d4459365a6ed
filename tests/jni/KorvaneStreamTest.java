import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertSame;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.korvane.vad.KorvaneStream;
import com.korvane.vad.KorvaneStream.Config;
import com.korvane.vad.KorvaneStream.Decision;
import com.korvane.vad.KorvaneVad;
import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.math.BigInteger;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.ShortBuffer;
import java.security.MessageDigest;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.function.LongConsumer;
import java.util.function.Supplier;
import java.util.stream.Collectors;
import java.util.stream.LongStream;
import org.junit.Test;
import org.junit.function.ThrowingRunnable;

/** Streams against each other and against the older class. */
public class KorvaneStreamTest {
    private static final int N = KorvaneVadTest.N;
    private static final int FRAMES = 400;
    private static final short[] SOUND = ConformanceTest.signal("bursts,12000,20,24000,7,1", FRAMES * N);

    /** All that a listener is told, as text; what is thrown at its line `trouble`. */
    private static class Told implements KorvaneStream.Listener {
        final List<String> lines = new ArrayList<>();
        int trouble = -1;
        Runnable action = () -> {};

        @Override
        public void onResult(KorvaneStream.Result r) {
            add(r.position + " " + r.length + " " + r.speech + " " + r.score + " " + r.levelDb + " " + r.noiseDb);
        }

        @Override
        public void onEvent(KorvaneStream.Event e) {
            add(e.kind + " " + e.position + " " + e.start + " " + e.open);
        }

        private void add(String line) {
            lines.add(line);
            if (lines.size() == trouble) {
                action.run();
            }
        }
    }

    /** Syllables of a vowel in every other second, over noise that grows: proofs/streams/digest.c. */
    private static final class Sound {
        private int seed = 1;
        private final int[] throat = new int[2];
        private final int[] mouth = new int[2];

        private static int resonate(int[] last, int x, int a, int b) {
            int y = x + (int) (((long) a * last[0] - (long) b * last[1]) >> 14);
            last[1] = last[0];
            last[0] = y;
            return y;
        }

        private int next(int at, int rate) {
            boolean voice = at / rate % 2 == 1 && at % (rate / 4) < rate / 6 && at % (rate / 120) == 0;
            int vowel = resonate(mouth, resonate(throat, voice ? 1000 : 0, 31366, 15878), 28028, 15753);
            seed = seed * 1664525 + 1013904223;
            return (short) (vowel % 16384 + (seed >>> 16) % (10 + at / 100));
        }

        /** Pairs of n samples, from sample `at` of the sound on. */
        short[] pairs(int at, int n, int rate) {
            short[] x = new short[2 * n];
            for (int i = 0; i < n; ++i) {
                x[2 * i] = (short) next(at + i, rate);
                x[2 * i + 1] = (short) (x[2 * i] / 3 + (at + i) % 7);
            }
            return x;
        }
    }

    /** The calls that give cleaned samples back. */
    private enum Form {
        SHORTS, FLOATS, BYTE_BUFFER, SHORT_BUFFER;

        private static final int AROUND = 3; // bytes

        /** A direct buffer that holds them, at an odd address; position and limit are their bytes'. */
        private static ByteBuffer around(short[] x) {
            ByteBuffer buffer = ByteBuffer.allocateDirect(2 * x.length + 2 * AROUND);
            buffer.position(AROUND).limit(AROUND + 2 * x.length);
            buffer.slice().order(ByteOrder.nativeOrder()).asShortBuffer().put(x);
            return buffer;
        }

        private static void take(ByteBuffer buffer, short[] x) {
            assertEquals(AROUND, buffer.position());
            assertEquals(2 * x.length, buffer.remaining());
            buffer.slice().order(ByteOrder.nativeOrder()).asShortBuffer().get(x);
            buffer.clear();
            for (int i = 0; i < AROUND; ++i) {
                assertEquals("beside it", 0, buffer.get(i) | buffer.get(AROUND + 2 * x.length + i));
            }
        }

        /** A view that begins a sample before and stands at its second one. */
        private static ShortBuffer fromTheSecondOn(ByteBuffer buffer) {
            ByteBuffer longer = buffer.duplicate();
            longer.position(AROUND - 2);
            ShortBuffer view = longer.slice().order(ByteOrder.nativeOrder()).asShortBuffer();
            view.position(1);
            return view;
        }

        /** The cleaned samples take their place; in place is every other call. */
        boolean process(KorvaneStream stream, short[] x, boolean inPlace) {
            short[] noisy = x.clone();
            boolean speech;
            switch (this) {
                case SHORTS:
                    speech = stream.process(inPlace ? x : noisy, x);
                    break;
                case FLOATS:
                    float[] floats = new float[x.length];
                    for (int i = 0; i < x.length; ++i) {
                        floats[i] = x[i] / 32768F;
                    }
                    float[] cleaned = inPlace ? floats : new float[x.length];
                    speech = stream.process(floats, cleaned);
                    for (int i = 0; i < x.length; ++i) {
                        x[i] = (short) (cleaned[i] * 32768);
                    }
                    break;
                case BYTE_BUFFER:
                    ByteBuffer in = around(x);
                    ByteBuffer out = inPlace ? in : around(new short[x.length]);
                    speech = stream.process(inPlace ? in : in.asReadOnlyBuffer(), out);
                    take(out, x);
                    break;
                default:
                    ByteBuffer bytes = around(x);
                    ShortBuffer shorts = fromTheSecondOn(bytes);
                    ShortBuffer other = fromTheSecondOn(around(noisy)).asReadOnlyBuffer();
                    speech = stream.process(inPlace ? shorts : other, shorts);
                    take(bytes, x);
            }
            return speech;
        }
    }

    private static Config config(int channels) {
        return new Config(16000, channels).scores(0.05F, 0.02F).segments(100, 50, 700).padding(20, 30); // bursts of noise count
    }

    /** What is told of the sound handed over whole, and the cleaned samples. */
    private static short[] whole(Config config, Told told) {
        try (KorvaneStream stream = new KorvaneStream(config, told)) {
            short[] cleaned = new short[SOUND.length];
            stream.process(SOUND, cleaned);
            stream.end();
            return cleaned;
        }
    }

    /** As a C program hears it, in all forms in turn: results, events, answers and cleaned samples. */
    @Test
    public void allFormsGiveTheAnswersOfTheCLibrary() throws Exception {
        MessageDigest sha = MessageDigest.getInstance("SHA-256");
        LongConsumer add = value ->
                sha.update(ByteBuffer.allocate(8).order(ByteOrder.LITTLE_ENDIAN).putLong(value).array());
        boolean[] speech = new boolean[1];
        KorvaneStream.Listener listener = new KorvaneStream.Listener() {
            @Override
            public void onResult(KorvaneStream.Result r) {
                speech[0] = r.speech;
                LongStream.of(r.position, r.length, r.speech ? 1 : 0, (long) (r.score * 32768),
                        (long) (r.levelDb * 256), (long) (r.noiseDb * 256)).forEach(add);
            }

            @Override
            public void onEvent(KorvaneStream.Event e) {
                LongStream.of(e.kind == KorvaneStream.Event.Kind.START ? 1 : 2, e.open ? 1 : 0, e.position, e.start)
                        .forEach(add);
            }
        };
        Sound sound = new Sound();
        for (int rate : new int[] {8000, 16000, 22050, 48000}) {
            for (Decision decision : new Decision[] {Decision.ADAPTIVE, Decision.FIXED}) {
                try (KorvaneStream stream = new KorvaneStream(new Config(rate, 2).decision(decision), listener)) {
                    add.accept(0);
                    int n = 441;
                    for (int at = 0; at < 3 * rate; at += n) {
                        short[] x = sound.pairs(at, n, rate);
                        Form form = Form.values()[at / n % 4];
                        add.accept(form.process(stream, x, at / n % 8 < 4) ? 1 : 0);
                        for (short sample : x) {
                            add.accept(sample);
                        }
                    }
                    stream.end();
                    add.accept(speech[0] ? 1 : 0);
                }
            }
        }
        Process c = new ProcessBuilder(System.getProperty("digest")).start();
        String expected = new BufferedReader(new InputStreamReader(c.getInputStream())).readLine();
        assertEquals(expected, String.format("%064x", new BigInteger(1, sha.digest())));
    }

    /** Of the events in a sound. */
    private static List<Long> positions(Config config, short[] sound) {
        Told told = new Told();
        try (KorvaneStream stream = new KorvaneStream(config, told)) {
            config.padding(-1, -1); // which comes too late to matter
            stream.process(sound);
            stream.end();
        }
        return told.lines.stream().filter(line -> Character.isLetter(line.charAt(0)))
                .map(line -> Long.valueOf(line.split(" ")[1])).collect(Collectors.toList());
    }

    /** Each setting does what its name says, and no other's work. */
    @Test
    public void settingsReachTheLibrary() {
        short[] sound = new Sound().pairs(0, 64000, 16000);
        Supplier<Config> level = () -> new Config(16000, 2).decision(Decision.FIXED).levels(-30, -30);
        Supplier<Config> whole = () -> level.get().segments(300, 0, 0);
        List<Long> plain = positions(whole.get(), sound);
        assertEquals("in the second and in the fourth second", 4, plain.size());
        long start = plain.get(0);
        long end = plain.get(1);
        assertTrue(positions(level.get(), sound).size() > 4);
        Object[][] cases = {
            {whole.get().padding(100, 0), start - 1600, end},
            {whole.get().padding(0, 200), start, end + 3200},
            {level.get().segments(300, 0, 600), start, start + (end - start + 1) / 2},
            {level.get().segments(300, 5000, 0), -1L, -1L},
            {whole.get().times(2000, 60), -1L, -1L},
            {level.get().times(0, 300), start, end},
            {whole.get().frameLength(4000), start / 4000 * 4000, (end + 3999) / 4000 * 4000},
            {whole.get().levels(0, -30), -1L, -1L},
            {whole.get().levels(-30, -140), start, 64000L},
            {new Config(16000, 2).scores(1, 0), -1L, -1L},
            {new Config(16000, 2).scores(0, 0), 0L, 64000L},
        };
        for (Object[] row : cases) {
            List<Long> told = positions((Config) row[0], sound);
            String text = "case " + Arrays.asList(cases).indexOf(row);
            assertEquals(text, row[1], told.isEmpty() ? -1L : told.get(0));
            assertEquals(text, row[2], told.isEmpty() ? -1L : told.get(1));
        }
    }

    @Test
    public void decisionDetectorIsTheOlderClass() {
        Told told = new Told();
        Config config = new Config(16000, 1).decision(Decision.DETECTOR).restoreLevel(false);
        try (KorvaneVad vad = KorvaneVadTest.configured(); KorvaneStream stream = new KorvaneStream(config, told)) {
            for (int f = 0; f < FRAMES; ++f) {
                short[] frame = Arrays.copyOfRange(SOUND, f * N, (f + 1) * N);
                short[] cleaned = new short[N];
                boolean speech = stream.process(frame, cleaned);
                assertEquals(vad.process(frame), speech);
                assertArrayEquals(frame, cleaned);
            }
            // The frame that holds sample 24000, where the bursts begin; frames lie at multiples of N, the delay less.
            assertTrue(told.lines.contains("START 23920 23920 false"));
            assertTrue(stream.process(new short[0]));
            stream.reset();
            assertFalse(stream.process(new short[0]));
        }
    }

    @Test
    public void anyChunksAndFormatsGiveTheSame() {
        Random random = new Random(1);
        for (int channels = 1; channels <= 2; ++channels) {
            Told expected = new Told();
            short[] cleaned = whole(config(channels), expected);
            Told told = new Told();
            try (KorvaneStream stream = new KorvaneStream(config(channels), told)) {
                for (int at = 0; at < SOUND.length;) {
                    int n = Math.min(random.nextInt(2000) * channels, SOUND.length - at);
                    short[] piece = Arrays.copyOfRange(SOUND, at, at + n);
                    float[] floats = new float[n];
                    for (int i = 0; i < n; ++i) {
                        floats[i] = piece[i] / 32768F;
                    }
                    switch (random.nextInt(4)) {
                        case 0:
                            stream.process(Arrays.copyOf(piece, n + 100), n);
                            break;
                        case 1:
                            stream.process(piece, piece);
                            assertArrayEquals(Arrays.copyOfRange(cleaned, at, at + n), piece);
                            break;
                        case 2:
                            stream.process(floats);
                            break;
                        default:
                            stream.process(floats, floats);
                            for (int i = 0; i < n; ++i) {
                                assertEquals(cleaned[at + i], Math.round(floats[i] * 32768));
                            }
                    }
                    at += n;
                }
                short[] tail = new short[stream.delay() * channels];
                stream.end(tail);
                assertEquals(expected.lines, told.lines);
                assertThrows(IllegalStateException.class, stream::end);
                stream.reset();
                told.lines.clear();
                stream.process(SOUND);
                float[] floatTail = new float[tail.length];
                stream.end(floatTail);
                for (int i = 0; i < tail.length; ++i) {
                    assertEquals(tail[i], Math.round(floatTail[i] * 32768));
                }
                assertEquals(expected.lines, told.lines);
            }
            assertTrue(expected.lines.stream().anyMatch(line -> line.startsWith("END")));
        }
    }

    @Test
    public void whatAListenerThrowsComesOutAndNothingIsLost() {
        Told expected = new Told();
        whole(config(1), expected);
        Told told = new Told();
        RuntimeException trouble = new RuntimeException();
        try (KorvaneStream stream = new KorvaneStream(config(1), told)) {
            told.action = () -> {
                throw trouble;
            };
            told.trouble = 1;
            assertSame(trouble, assertThrows(RuntimeException.class, () -> stream.process(SOUND)));
            told.trouble = expected.lines.size() - 1;
            assertSame(trouble, assertThrows(RuntimeException.class, stream::end));
            assertThrows(IllegalStateException.class, () -> stream.process(SOUND)); // it has ended
        }
        assertEquals(expected.lines, told.lines);
    }

    private static ByteBuffer direct(int bytes) {
        return ByteBuffer.allocateDirect(bytes);
    }

    private static ShortBuffer shorts(boolean order, int samples) {
        boolean little = order == (ByteOrder.nativeOrder() == ByteOrder.LITTLE_ENDIAN);
        return direct(2 * samples).order(little ? ByteOrder.LITTLE_ENDIAN : ByteOrder.BIG_ENDIAN).asShortBuffer();
    }

    @Test
    public void whatIsRefusedChangesNothing() {
        Told expected = new Told();
        whole(config(2), expected);
        Told told = new Told();
        KorvaneStream stream = new KorvaneStream(config(2), told);
        ThrowingRunnable[] calls = {() -> stream.process(SOUND), stream::end, stream::reset, stream::close};
        told.trouble = 30;
        told.action = () -> {
            for (ThrowingRunnable call : calls) {
                assertEquals(ThreadsTest.STREAM_IN_USE,
                        assertThrows(IllegalStateException.class, call).getMessage());
            }
        };
        for (ThrowingRunnable call : new ThrowingRunnable[] {() -> stream.process(new short[3]),
                () -> stream.process(new float[1]), () -> stream.process(SOUND, -2),
                () -> stream.process(new short[2], 4), () -> stream.process(SOUND, new short[2]),
                () -> stream.process(new float[2], new float[4]), () -> stream.process(direct(6)),
                () -> stream.process(direct(5)), () -> stream.process(ByteBuffer.allocate(4)),
                () -> stream.process(direct(4), direct(8)), () -> stream.process(direct(4), ByteBuffer.allocate(4)),
                () -> stream.process(direct(4), direct(4).asReadOnlyBuffer()),
                () -> stream.process(ShortBuffer.allocate(2)), () -> stream.process(shorts(true, 3)),
                () -> stream.process(shorts(false, 2)), () -> stream.process(shorts(true, 2), shorts(false, 2)),
                () -> stream.end(new short[720]), () -> stream.end(new float[1439])}) {
            assertThrows(IllegalArgumentException.class, call);
        }
        assertThrows(NullPointerException.class, () -> stream.process((short[]) null));
        stream.process(SOUND);
        stream.end();
        assertEquals(expected.lines, told.lines);
        stream.close();
        stream.close();
        assertEquals("this KorvaneStream is closed",
                assertThrows(IllegalStateException.class, () -> stream.process(SOUND)).getMessage());
        for (Object[] wrong : new Object[][] {
                {"the sampling rate is outside 1..49999 Hz; resample", (ThrowingRunnable) () -> new Config(50000, 1)},
                {"there are neither one nor two channels", (ThrowingRunnable) () -> new Config(8000, 3)},
                {"the frame length is outside 1..4096 samples", opening(config(1).frameLength(0))},
                {"a score is outside 0..1, or stay_score above enter_score", opening(config(1).scores(0.2F, 0.3F))},
                {"a threshold is outside -140..0 dB, or stay_db above enter_db",
                        opening(config(1).levels(-10, Float.NaN))},
                {"a time is negative or longer than an hour", opening(config(1).times(-1, 60))}}) {
            assertEquals(wrong[0],
                    assertThrows(IllegalArgumentException.class, (ThrowingRunnable) wrong[1]).getMessage());
        }
        assertTrue(KorvaneStream.version().matches("\\d+\\.\\d+\\.\\d+"));
    }

    private static ThrowingRunnable opening(Config config) {
        return () -> new KorvaneStream(config, new Told());
    }

    /** More than the virtual machine has room for at once. */
    @Test
    public void streamsThatAreDroppedGiveTheirMemoryBack() {
        for (int i = 0; i < 20000; ++i) {
            new KorvaneStream(config(1), new Told()).process(new short[10]);
        }
    }
}
