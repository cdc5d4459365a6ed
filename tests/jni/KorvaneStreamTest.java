import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertSame;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.korvane.vad.KorvaneStream;
import com.korvane.vad.KorvaneStream.Config;
import com.korvane.vad.KorvaneStream.Decision;
import com.korvane.vad.KorvaneVad;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
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

    private static Config config(int channels) {
        return new Config(16000, channels).segments(100, 50, 700).padding(20, 30);
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
                stream.end(new short[stream.delay() * channels]);
                assertEquals(expected.lines, told.lines);
                assertThrows(IllegalStateException.class, stream::end);
                stream.reset();
                told.lines.clear();
                stream.process(SOUND);
                stream.end();
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
            told.trouble = 40;
            assertSame(trouble, assertThrows(RuntimeException.class, () -> stream.process(new short[0])));
            assertEquals(40, told.lines.size());
            told.trouble = expected.lines.size() - 2;
            assertSame(trouble, assertThrows(RuntimeException.class, stream::end));
            assertThrows(IllegalStateException.class, () -> stream.process(SOUND)); // it has ended
            stream.end();
        }
        assertEquals(expected.lines, told.lines);
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
                assertEquals("this KorvaneStream is in use, by another thread or its own listener: calls must not overlap",
                        assertThrows(IllegalStateException.class, call).getMessage());
            }
        };
        for (ThrowingRunnable call : new ThrowingRunnable[] {() -> stream.process(new short[3]),
                () -> stream.process(new float[1]), () -> stream.process(SOUND, -2), () -> stream.process(new short[2], 4),
                () -> stream.process(SOUND, new short[2]), () -> stream.process(new float[2], new float[4]),
                () -> stream.end(new short[720])}) {
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
