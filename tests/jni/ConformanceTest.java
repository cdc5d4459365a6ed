import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.korvane.vad.KorvaneVad;
import com.korvane.vad.KorvaneVad.ChannelMode;
import java.math.BigInteger;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.ShortBuffer;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.security.MessageDigest;
import java.util.Arrays;
import java.util.function.IntUnaryOperator;
import org.junit.Test;

/** The face gives the digests of the conformance table, which holds the C interface to them, too. */
public class ConformanceTest {
    /** n samples of what the table calls bursts (conformance/signals.c): noise, and in every other
     * stretch a triangle wave on top; or silence, "-". */
    static short[] signal(String text, int n) {
        short[] samples = new short[n];
        if (text.equals("-")) {
            return samples;
        }
        // amplitude, period, length of a stretch, shift of the noise, seed
        int[] fields = Arrays.stream(text.substring("bursts,".length()).split(","))
                               .mapToInt(Integer::parseUnsignedInt)
                               .toArray();
        int draw = fields[4];
        for (int i = 0; i < n; ++i) {
            draw ^= draw << 13;
            draw ^= draw >>> 17;
            draw ^= draw << 5;
            int sample = (short) (draw >>> 16) >> fields[3];
            if (i / fields[2] % 2 != 0) {
                int rise = i % fields[1] < fields[1] / 2 ? i % fields[1] : fields[1] - i % fields[1];
                sample += (int) (4L * fields[0] * rise / fields[1]) - fields[0];
            }
            samples[i] = (short) Math.max(-32768, Math.min(sample, 32767));
        }
        return samples;
    }

    /** The calls that take a frame. */
    private enum Form {
        IN_PLACE, ARRAY_TO_ARRAY, DIRECT_BUFFER;

        /** The cleaned samples take the frame's place, and nothing else is written to. */
        boolean process(KorvaneVad vad, short[] frame) {
            if (this == IN_PLACE) {
                return vad.process(frame);
            }
            short[] kept = frame.clone();
            if (this == ARRAY_TO_ARRAY) {
                short[] noisy = frame.clone();
                boolean speech = vad.process(noisy, frame);
                assertArrayEquals("the frame was written to", kept, noisy);
                return speech;
            }
            int offset = 3; // bytes; samples lie at odd addresses
            int bytes = 2 * frame.length;
            ByteBuffer buffer = ByteBuffer.allocateDirect(bytes + 2 * offset);
            buffer.position(offset).limit(offset + bytes);
            ShortBuffer view = buffer.slice().order(ByteOrder.nativeOrder()).asShortBuffer();
            view.duplicate().put(frame);
            boolean speech = vad.process(buffer);
            view.get(frame);
            assertEquals("position", offset, buffer.position());
            assertEquals("limit", offset + bytes, buffer.limit());
            buffer.clear();
            for (int i = 0; i < offset; ++i) {
                assertEquals("beside the frame", 0, buffer.get(i) | buffer.get(offset + bytes + i));
            }
            return speech;
        }
    }

    private static String digest(KorvaneVad vad, String[] row, Form form) throws Exception {
        ChannelMode mode = ChannelMode.values()[Integer.parseInt(row[4]) - 1];
        int n = Integer.parseInt(row[5]);
        int samples = Integer.parseInt(row[6]);
        short[][] channels = {signal(row[7], samples), signal(row[8], samples)};
        short[] frame = new short[mode == ChannelMode.MONO ? n : 2 * n];
        // Where the samples of a frame lie, channel after channel.
        IntUnaryOperator place = i -> mode == ChannelMode.INTERLEAVED_STEREO ? 2 * (i % n) + i / n : i;
        // From 25000 Hz a stream begins with what the one before it left: here silence.
        vad.configure(48000, ChannelMode.PLANAR_STEREO, 2000);
        vad.process(new short[4000]);
        vad.configure(Integer.parseInt(row[2]), mode, n);
        MessageDigest sha = MessageDigest.getInstance("SHA-256");
        ByteBuffer bytes = ByteBuffer.allocate(2 * frame.length).order(ByteOrder.LITTLE_ENDIAN);
        for (int at = 0; at + n <= samples; at += n) {
            for (int i = 0; i < frame.length; ++i) {
                frame[place.applyAsInt(i)] = channels[i / n][at + i % n];
            }
            sha.update((byte) (form.process(vad, frame) ? 1 : 0));
            bytes.clear();
            for (int i = 0; i < frame.length; ++i) {
                bytes.putShort(frame[place.applyAsInt(i)]);
            }
            sha.update(bytes.array());
        }
        return String.format("%064x", new BigInteger(1, sha.digest()));
    }

    @Test
    public void allFormsOfAFrameGiveTheDigestsOfTheTable() throws Exception {
        int rows = 0;
        try (KorvaneVad vad = new KorvaneVad()) {
            for (String line : Files.readAllLines(Paths.get(System.getProperty("table")))) {
                String[] row = line.split("\t");
                if (row[1].equals("detector") && row[7].startsWith("bursts")
                        && row[8].matches("-|bursts.*") && row[2].matches("[1-9]\\d{3}|[1-4]\\d{4}")) {
                    ++rows;
                    for (Form form : Form.values()) {
                        assertEquals(form + " " + line, row[9], digest(vad, row, form));
                    }
                }
            }
        }
        assertTrue(rows + " rows", rows > 100);
    }
}
