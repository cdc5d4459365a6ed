import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.korvane.vad.KorvaneVad;
import com.korvane.vad.KorvaneVad.ChannelMode;
import java.lang.management.ManagementFactory;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.function.Consumer;
import org.junit.Test;
import org.junit.function.ThrowingRunnable;

/** The life of an instance, and what it refuses. */
public class KorvaneVadTest {
    private static final int N = 160; // 10 ms at 16 kHz, where a new stream depends on nothing before it
    private static final short[][] FRAMES = Speech.frames(16000, ChannelMode.MONO, N);
    /** In the middle of speech: what follows would show what the stream keeps of it. */
    private static final int LOUD = middleOfSpeech();
    private static final List<short[]> UNDISTURBED = undisturbed();

    private static int middleOfSpeech() {
        int loudest = 0;
        long most = 0;
        for (int f = 0; f < FRAMES.length; ++f) {
            long energy = 0;
            for (short sample : FRAMES[f]) {
                energy += sample * sample;
            }
            loudest = energy > most ? f : loudest;
            most = Math.max(energy, most);
        }
        return loudest + 1;
    }

    private static List<short[]> undisturbed() {
        try (KorvaneVad vad = new KorvaneVad()) {
            vad.configure(16000, ChannelMode.MONO, N);
            return run(vad, 0, FRAMES.length);
        }
    }

    /** Flags and cleaned samples of the frames from begin to end. */
    private static List<short[]> run(KorvaneVad vad, int begin, int end) {
        List<short[]> results = new ArrayList<>();
        for (int f = begin; f < end; ++f) {
            short[] result = Arrays.copyOf(FRAMES[f], N);
            boolean speech = vad.process(result);
            result = Arrays.copyOf(result, N + 1);
            result[N] = (short) (speech ? 1 : 0);
            results.add(result);
        }
        return results;
    }

    private static void assertSame(List<short[]> expected, List<short[]> results) {
        assertArrayEquals(expected.toArray(), results.toArray());
    }

    /** A stream is what it would have been, whatever is tried in the middle of it. */
    private static void assertLeavesTheStreamAlone(Consumer<KorvaneVad> disturbance) {
        try (KorvaneVad vad = new KorvaneVad()) {
            vad.configure(16000, ChannelMode.MONO, N);
            List<short[]> results = run(vad, 0, LOUD);
            disturbance.accept(vad);
            results.addAll(run(vad, LOUD, FRAMES.length));
            assertSame(UNDISTURBED, results);
        }
    }

    private static <T extends Throwable> void assertRefused(
            Class<T> type, String message, ThrowingRunnable call) {
        assertEquals(message, assertThrows(type, call).getMessage());
    }

    private static void assertBadArgument(String message, ThrowingRunnable call) {
        assertRefused(IllegalArgumentException.class, message, call);
    }

    @Test
    public void aSecondInstanceIsRefusedUntilTheFirstIsClosed() {
        assertLeavesTheStreamAlone(
                vad -> assertRefused(IllegalStateException.class,
                        "a KorvaneVad is open in this process, which can hold one: close it first",
                        KorvaneVad::new));
        // Which has closed its instance; the next is as good as the first.
        assertLeavesTheStreamAlone(vad -> {});
    }

    @Test
    public void nothingWorksBeforeConfigureButInitAndClose() {
        try (KorvaneVad vad = new KorvaneVad()) {
            vad.init();
            String message = "this KorvaneVad is not configured: call configure first";
            Class<IllegalStateException> type = IllegalStateException.class;
            assertRefused(type, message, () -> vad.process(new short[N]));
            assertRefused(type, message, () -> vad.process(new short[N], new short[N]));
            assertRefused(type, message, () -> vad.process(ByteBuffer.allocateDirect(2 * N)));
        }
    }

    @Test
    public void nothingWorksAfterCloseButClose() {
        KorvaneVad closed = new KorvaneVad();
        closed.configure(16000, ChannelMode.MONO, N);
        closed.close();
        assertLeavesTheStreamAlone(vad -> {
            closed.close();
            String message = "this KorvaneVad is closed";
            Class<IllegalStateException> type = IllegalStateException.class;
            assertRefused(type, message, closed::init);
            assertRefused(type, message, () -> closed.configure(8000, ChannelMode.MONO, N));
            assertRefused(type, message, () -> closed.process(new short[N]));
            assertRefused(type, message, () -> closed.process(new short[N], new short[N]));
            assertRefused(type, message, () -> closed.process(ByteBuffer.allocateDirect(2 * N)));
            assertRefused(IllegalStateException.class,
                    "a KorvaneVad is open in this process, which can hold one: close it first",
                    KorvaneVad::new);
        });
    }

    @Test
    public void initAndConfigureStartANewStream() {
        try (KorvaneVad vad = new KorvaneVad()) {
            vad.configure(48000, ChannelMode.PLANAR_STEREO, N);
            vad.process(new short[2 * N]);
            vad.configure(16000, ChannelMode.MONO, N);
            assertSame(UNDISTURBED.subList(0, LOUD), run(vad, 0, LOUD));
            vad.init();
            assertSame(UNDISTURBED.subList(0, LOUD), run(vad, 0, LOUD));
            vad.configure(16000, ChannelMode.MONO, N);
            assertSame(UNDISTURBED, run(vad, 0, FRAMES.length));
        }
    }

    @Test
    public void wrongArgumentsAreRefusedAndNothingIsLost() {
        assertLeavesTheStreamAlone(vad -> {
            for (int rate : new int[] {Integer.MIN_VALUE, -1, 0, 50000, Integer.MAX_VALUE}) {
                assertBadArgument("sampleRate is " + rate + ", must be 1 to 49999 Hz",
                        () -> vad.configure(rate, ChannelMode.MONO, N));
            }
            for (int length : new int[] {Integer.MIN_VALUE, -1, 0, 4097, 65536 + N, Integer.MAX_VALUE}) {
                assertBadArgument("frameLength is " + length + ", must be 1 to 4096 samples per channel",
                        () -> vad.configure(8000, ChannelMode.PLANAR_STEREO, length));
            }
            String suffix = ", must be 160: frames of 160 samples per channel, MONO";
            for (int length : new int[] {0, N - 1, N + 1, 2 * N}) {
                assertBadArgument("frame.length is " + length + suffix,
                        () -> vad.process(new short[length]));
                assertBadArgument("frame.length is " + length + suffix,
                        () -> vad.process(new short[length], new short[N]));
                assertBadArgument("cleaned.length is " + length + suffix,
                        () -> vad.process(new short[N], new short[length]));
            }
            ByteBuffer direct = ByteBuffer.allocateDirect(2 * N);
            assertBadArgument("frame is not a direct buffer",
                    () -> vad.process(ByteBuffer.allocate(2 * N)));
            assertBadArgument("frame is read-only; it takes the cleaned samples",
                    () -> vad.process(direct.asReadOnlyBuffer()));
            direct.position(1);
            assertBadArgument("frame.remaining() is 319, must be 320: frames of 160 samples per channel, MONO",
                    () -> vad.process(direct));
            Class<NullPointerException> type = NullPointerException.class;
            assertRefused(type, "mode", () -> vad.configure(8000, null, N));
            assertRefused(type, "frame", () -> vad.process((short[]) null));
            assertRefused(type, "frame", () -> vad.process(null, new short[N]));
            assertRefused(type, "cleaned", () -> vad.process(new short[N], null));
            assertRefused(type, "frame", () -> vad.process((ByteBuffer) null));
        });
        try (KorvaneVad vad = new KorvaneVad()) {
            vad.configure(49999, ChannelMode.INTERLEAVED_STEREO, 4096);
            assertBadArgument("frame.length is 4096, must be 8192: frames of 4096 samples per channel, "
                            + "INTERLEAVED_STEREO",
                    () -> vad.process(new short[4096]));
            vad.process(new short[8192]);
            vad.configure(1, ChannelMode.MONO, 1);
            vad.process(new short[1]);
        }
    }

    /** A call from another thread, made again and again, meets a frame that is being processed. */
    private static void assertRefusedWhileProcessing(Consumer<KorvaneVad> call) throws Exception {
        ExecutorService recorder = Executors.newSingleThreadExecutor();
        boolean refused = false;
        long deadline = System.nanoTime() + 30_000_000_000L;
        while (!refused) {
            assertTrue("not refused in 30 s", System.nanoTime() < deadline);
            AtomicBoolean done = new AtomicBoolean();
            KorvaneVad vad = new KorvaneVad();
            vad.configure(48000, ChannelMode.PLANAR_STEREO, 4096);
            Future<?> recording = recorder.submit(() -> {
                short[] frame = new short[8192];
                while (!done.get()) {
                    try {
                        vad.process(frame);
                    } catch (IllegalStateException e) {
                        assertTrue(e.getMessage(), e.getMessage().contains("another thread")
                                || e.getMessage().contains("closed"));
                    }
                }
            });
            try {
                for (int attempt = 0; attempt < 1000 && !refused; ++attempt) {
                    call.accept(vad);
                }
            } catch (IllegalStateException e) {
                refused = e.getMessage().equals(
                        "this KorvaneVad is in use by another thread: calls must not overlap");
                assertTrue(e.getMessage(), refused || e.getMessage().contains("closed"));
            }
            done.set(true);
            recording.get();
            vad.close();
        }
        recorder.shutdown();
    }

    @Test
    public void callsThatOverlapAreRefused() throws Exception {
        short[] frame = new short[8192];
        ByteBuffer buffer = ByteBuffer.allocateDirect(2 * 8192);
        assertRefusedWhileProcessing(vad -> vad.process(frame));
        assertRefusedWhileProcessing(vad -> vad.process(buffer));
        assertRefusedWhileProcessing(KorvaneVad::init);
        assertRefusedWhileProcessing(vad -> vad.configure(48000, ChannelMode.PLANAR_STEREO, 4096));
        assertRefusedWhileProcessing(KorvaneVad::close);
    }

    /** All frames are the same, so the k-th that is let in gives the k-th result, whoever brought it. */
    @Test
    public void twoThreadsDoNotDisturbTheStream() throws InterruptedException, ExecutionException {
        short[] loud = FRAMES[0].clone();
        for (int i = 0; i < N; ++i) {
            loud[i] = (short) (i * i * 7919); // a period of 10 ms with energy at all frequencies
        }
        List<Integer> results = new ArrayList<>();
        try (KorvaneVad vad = new KorvaneVad()) {
            vad.configure(16000, ChannelMode.MONO, N);
            ExecutorService threads = Executors.newFixedThreadPool(2);
            AtomicBoolean refused = new AtomicBoolean();
            List<Future<List<Integer>>> futures = new ArrayList<>();
            for (int thread = 0; thread < 2; ++thread) {
                futures.add(threads.submit(() -> {
                    List<Integer> own = new ArrayList<>();
                    while (own.size() < 100 || !refused.get() && own.size() < 1_000_000) {
                        short[] frame = loud.clone();
                        try {
                            vad.process(frame);
                            own.add(Arrays.hashCode(frame));
                        } catch (IllegalStateException e) {
                            refused.set(true);
                        }
                    }
                    return own;
                }));
            }
            for (Future<List<Integer>> future : futures) {
                results.addAll(future.get());
            }
            threads.shutdown();
            assertTrue("never two calls at once", refused.get());
            List<Integer> expected = new ArrayList<>();
            vad.init();
            for (int f = 0; f < results.size(); ++f) {
                short[] frame = loud.clone();
                vad.process(frame);
                expected.add(Arrays.hashCode(frame));
            }
            expected.sort(null);
            results.sort(null);
            assertTrue("other results than one thread's", expected.equals(results)); // too many to print
        }
    }

    /** The memory that the process has in use, in bytes. */
    private static long residentMemory() throws Exception {
        for (String line : Files.readAllLines(Paths.get("/proc/self/status"))) {
            if (line.startsWith("VmRSS:")) {
                return Long.parseLong(line.replaceAll("[^0-9]", "")) << 10;
            }
        }
        throw new AssertionError("no VmRSS");
    }

    /** The heap is fixed and touched beforehand (-Xms, -Xmx, -XX:+AlwaysPreTouch). */
    @Test
    public void nothingIsAllocatedPerFrameAndNothingLeaks() throws Exception {
        com.sun.management.ThreadMXBean threads =
                (com.sun.management.ThreadMXBean) ManagementFactory.getThreadMXBean();
        long thread = Thread.currentThread().getId();
        short[] frame = new short[2 * N];
        short[] cleaned = new short[2 * N];
        ByteBuffer buffer = ByteBuffer.allocateDirect(4 * N);
        long resident = 0;
        for (int round = 0; round < 12; ++round) {
            if (round == 2) { // compilers have run
                resident = residentMemory();
            }
            for (int life = 0; life < 500; ++life) {
                try (KorvaneVad vad = new KorvaneVad()) {
                    vad.configure(16000, ChannelMode.PLANAR_STEREO, N);
                    assertRefused(NullPointerException.class, "mode", () -> vad.configure(1, null, 1));
                }
            }
            try (KorvaneVad vad = new KorvaneVad()) {
                vad.configure(16000, ChannelMode.PLANAR_STEREO, N);
                long before = threads.getThreadAllocatedBytes(thread);
                for (int f = 0; f < 20000; ++f) {
                    vad.process(frame);
                    vad.process(frame, cleaned);
                    vad.process(buffer);
                }
                // The smallest object has 16 bytes; the virtual machine may make a few of its own.
                long allocated = threads.getThreadAllocatedBytes(thread) - before;
                assertTrue(allocated + " bytes", allocated < 20000 * 16);
            }
        }
        // A frame lost per call would be 384 MB, a handle lost per life 82 MB. The virtual machine's own
        // memory moves by some MB.
        long grown = residentMemory() - resident;
        assertTrue("grown by " + grown + " bytes", grown < 32 << 20);
    }

    @Test
    public void versionNeedsNoInstance() {
        assertEquals("Korvane VAD v3.0 a64 2020.06.22)", KorvaneVad.version());
    }
}
