import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.korvane.vad.KorvaneStream;
import com.korvane.vad.KorvaneVad;
import com.korvane.vad.KorvaneVad.ChannelMode;
import java.nio.ByteBuffer;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Queue;
import java.util.concurrent.Callable;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.CyclicBarrier;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.locks.LockSupport;
import java.util.function.Consumer;
import java.util.function.Supplier;
import org.junit.Test;

/** Two threads and one detector or stream. The classes run with locks that are slow (standins/slow). */
public class ThreadsTest {
    private static final String IN_USE =
            "this KorvaneVad is in use by another thread: calls must not overlap";
    static final String STREAM_IN_USE =
            "this KorvaneStream is in use, by another thread or its own listener: calls must not overlap";
    private static final int N = KorvaneVadTest.N;

    /** Runs the same in two threads, so many times at once. */
    private static void inTwoThreads(int times, Callable<?> work) throws Exception {
        ExecutorService threads = Executors.newFixedThreadPool(2);
        CyclicBarrier barrier = new CyclicBarrier(2);
        List<Future<?>> done = new ArrayList<>();
        for (int thread = 0; thread < 2; ++thread) {
            done.add(threads.submit(() -> {
                for (int i = 0; i < times; ++i) {
                    barrier.await(10, TimeUnit.SECONDS); // or the other has failed
                    work.call();
                }
                return null;
            }));
        }
        threads.shutdown();
        for (Future<?> one : done) {
            one.get();
        }
    }

    @Test
    public void oneOpensTheDetector() throws Exception {
        AtomicInteger open = new AtomicInteger();
        inTwoThreads(20, () -> {
            try {
                KorvaneVad vad = new KorvaneVad();
                assertEquals("open at once", 1, open.incrementAndGet());
                Thread.sleep(5); // long enough for the other to come in
                open.decrementAndGet();
                vad.close();
            } catch (IllegalStateException e) {
                assertTrue(e.getMessage(), e.getMessage().contains("is open in this process"));
            }
            return null;
        });
    }

    /** All frames are the same, so as many of them give the same results, whoever brought each. */
    @Test
    public void theStreamIsOneThreads() throws Exception {
        List<Integer> results = Collections.synchronizedList(new ArrayList<>());
        try (KorvaneVad vad = KorvaneVadTest.configured()) {
            Callable<?> processOne = () -> {
                short[] frame = KorvaneVadTest.frame(KorvaneVadTest.LOUD, N);
                try {
                    vad.process(frame);
                    results.add(Arrays.hashCode(frame));
                } catch (IllegalStateException e) {
                    assertEquals(IN_USE, e.getMessage());
                }
                return null;
            };
            inTwoThreads(20, processOne);
            // Two that come within 10 ms meet; where the lock had a gap, both would get through it.
            assertTrue(results.size() + " of 40 let in", results.size() < 30);
            List<Integer> both = new ArrayList<>(results);
            vad.init();
            for (results.clear(); results.size() < both.size();) {
                processOne.call();
            }
            both.sort(null);
            results.sort(null);
            assertEquals(results, both);
        }
    }

    /** A stream that tells the positions of its results, after something else. */
    private static KorvaneStream stream(Runnable first, List<Long> positions) {
        return new KorvaneStream(new KorvaneStream.Config(16000, 1), new KorvaneStream.Listener() {
            @Override
            public void onResult(KorvaneStream.Result r) {
                first.run();
                positions.add(r.position);
            }

            @Override
            public void onEvent(KorvaneStream.Event e) {}
        });
    }

    /** Whoever got through a gap in the lock would find another call's results. */
    @Test
    public void aStreamIsOneThreads() throws Exception {
        List<Long> positions = Collections.synchronizedList(new ArrayList<>());
        AtomicInteger refused = new AtomicInteger();
        try (KorvaneStream stream = stream(() -> LockSupport.parkNanos(5_000_000), positions)) {
            inTwoThreads(20, () -> {
                try {
                    stream.process(new short[1728]);
                } catch (IllegalStateException e) {
                    assertEquals(STREAM_IN_USE, e.getMessage());
                    refused.incrementAndGet();
                }
                return null;
            });
        }
        assertTrue(refused + " of 40 refused", refused.get() > 10);
        for (int i = 0; i < positions.size(); ++i) {
            assertEquals((long) N * i, (long) positions.get(i));
        }
    }

    /** One thread makes the first call while another makes each of them, until they meet. */
    private static <T> void assertRefusedWhenTheyOverlap(Supplier<T> open, String refusal, Consumer<T> close,
            List<Consumer<T>> calls) throws Exception {
        for (Consumer<T> call : calls) {
            List<String> refusals = Collections.synchronizedList(new ArrayList<>());
            long deadline = System.nanoTime() + 30_000_000_000L;
            while (!refusals.contains(refusal)) {
                assertTrue("not refused in 30 s", System.nanoTime() < deadline);
                T opened = open.get();
                Queue<Consumer<T>> both = new ConcurrentLinkedQueue<>(Arrays.asList(calls.get(0), call));
                inTwoThreads(1, () -> {
                    try {
                        both.remove().accept(opened);
                    } catch (IllegalStateException e) {
                        refusals.add(e.getMessage());
                    }
                    return null;
                });
                close.accept(opened);
            }
        }
    }

    @Test
    public void callsThatOverlapAreRefused() throws Exception {
        assertRefusedWhenTheyOverlap(KorvaneVadTest::configured, IN_USE, KorvaneVad::close,
                Arrays.asList(vad -> vad.process(new short[N]),
                        vad -> vad.process(ByteBuffer.allocateDirect(2 * N)), KorvaneVad::init,
                        vad -> vad.configure(16000, ChannelMode.MONO, N), KorvaneVad::close));
        assertRefusedWhenTheyOverlap(() -> stream(() -> {}, new ArrayList<>()), STREAM_IN_USE,
                KorvaneStream::close,
                Arrays.asList(stream -> stream.process(new short[N]), stream -> stream.process(new float[N]),
                        stream -> stream.process(ByteBuffer.allocateDirect(2 * N)), KorvaneStream::end,
                        stream -> stream.end(new float[720]), KorvaneStream::reset, KorvaneStream::close));
    }
}
