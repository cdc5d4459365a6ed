import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.korvane.vad.KorvaneVad;
import com.korvane.vad.KorvaneVad.ChannelMode;
import java.lang.management.ManagementFactory;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.Arrays;
import java.util.Objects;
import java.util.function.Consumer;
import org.junit.Test;
import org.junit.function.ThrowingRunnable;

/** The life of an instance and what it refuses. */
public class KorvaneVadTest {
    static final int N = 160; // 10 ms at 16 kHz, where a new stream depends on nothing before it
    private static final short[] SOUND = ConformanceTest.signal("bursts,12000,20,24000,7,1", 400 * N);
    static final int LOUD = 225; // a frame in the middle of speech, where much depends on the past
    private static final String OPEN =
            "IllegalStateException: a KorvaneVad is open in this process, which can hold one: close it first";

    static KorvaneVad configured() {
        KorvaneVad vad = new KorvaneVad();
        vad.configure(16000, ChannelMode.MONO, N);
        return vad;
    }

    /** Frame f of the sound, of n samples over all channels. */
    static short[] frame(int f, int n) {
        return Arrays.copyOfRange(SOUND, f * n, (f + 1) * n);
    }

    /** A hash of the flags and cleaned samples of the frames from begin to end. */
    private static int run(KorvaneVad vad, int begin, int end, int n) {
        int hash = 0;
        for (int f = begin; f < end; ++f) {
            short[] frame = frame(f, n);
            hash = Objects.hash(hash, vad.process(frame), Arrays.hashCode(frame));
        }
        return hash;
    }

    /** A stream is what it would have been, whatever is tried in the middle of it. */
    private static void assertLeavesTheStreamAlone(Consumer<KorvaneVad> disturbance) {
        try (KorvaneVad vad = configured()) {
            run(vad, 0, LOUD, N);
            int undisturbed = run(vad, LOUD, 400, N);
            vad.init();
            run(vad, 0, LOUD, N);
            disturbance.accept(vad);
            assertEquals(undisturbed, run(vad, LOUD, 400, N));
        }
    }

    private static void assertRefused(String exception, ThrowingRunnable... calls) {
        for (ThrowingRunnable call : calls) {
            assertEquals("java.lang." + exception, assertThrows(Throwable.class, call).toString());
        }
    }

    private static void assertBadArgument(String message, ThrowingRunnable... calls) {
        assertRefused("IllegalArgumentException: " + message, calls);
    }

    private static ThrowingRunnable[] processing(KorvaneVad vad) {
        return new ThrowingRunnable[] {() -> vad.process(new short[N]),
                () -> vad.process(new short[N], new short[N]),
                () -> vad.process(ByteBuffer.allocateDirect(2 * N))};
    }

    @Test
    public void nothingWorksBeforeConfigureButInitAndClose() {
        try (KorvaneVad vad = new KorvaneVad()) {
            vad.init();
            assertRefused("IllegalStateException: this KorvaneVad is not configured: call configure first",
                    processing(vad));
        }
    }

    @Test
    public void nothingWorksAfterCloseButClose() {
        KorvaneVad closed = configured();
        closed.close();
        assertLeavesTheStreamAlone(vad -> {
            closed.close(); // which does not give back what is another's
            assertRefused(OPEN, KorvaneVad::new);
            assertRefused("IllegalStateException: this KorvaneVad is closed", processing(closed));
            assertRefused("IllegalStateException: this KorvaneVad is closed", closed::init,
                    () -> closed.configure(8000, ChannelMode.MONO, N));
        });
    }

    @Test
    public void initAndConfigureStartANewStream() {
        try (KorvaneVad vad = new KorvaneVad()) {
            for (int rate : new int[] {8000, 16000, 22050}) {
                for (ChannelMode mode : ChannelMode.values()) {
                    int n = mode == ChannelMode.MONO ? N : 2 * N;
                    vad.configure(rate, mode, N);
                    int first = run(vad, 0, 199, n);
                    assertThrows(IllegalArgumentException.class, () -> vad.configure(1, mode, 0));
                    vad.init(); // with the settings that were taken last
                    assertEquals(first, run(vad, 0, 199, n));
                    vad.configure(rate, mode, N);
                    assertEquals(first, run(vad, 0, 199, n));
                }
            }
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
                assertBadArgument("frame.length is " + length + suffix, () -> vad.process(new short[length]),
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
            assertRefused("NullPointerException: mode", () -> vad.configure(8000, null, N));
            assertRefused("NullPointerException: frame", () -> vad.process((short[]) null),
                    () -> vad.process(null, new short[N]), () -> vad.process((ByteBuffer) null));
            assertRefused("NullPointerException: cleaned", () -> vad.process(new short[N], null));
            assertRefused(OPEN, KorvaneVad::new);
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

    /** The memory that the process has in use, in bytes. */
    private static long residentMemory() throws Exception {
        String status = new String(Files.readAllBytes(Paths.get("/proc/self/status")));
        return Long.parseLong(status.replaceAll("(?s).*VmRSS:\\s*(\\d+).*", "$1")) << 10;
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
                try (KorvaneVad vad = configured()) {
                    assertRefused("NullPointerException: mode", () -> vad.configure(1, null, 1));
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
