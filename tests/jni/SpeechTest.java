import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertTrue;

import com.korvane.vad.KorvaneVad;
import com.korvane.vad.KorvaneVad.ChannelMode;
import java.io.BufferedOutputStream;
import java.io.DataOutputStream;
import java.io.File;
import java.io.FileOutputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.ShortBuffer;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.junit.Test;

/**
 * Real speech gives the flags and the samples that the C interface gives, bit for bit. From 25000 Hz the
 * first samples of a stream still depend on the one before it; so both sides run the same streams in the
 * same order from the start of their process, and this class runs in a virtual machine of its own.
 */
public class SpeechTest {
    /** The calls that take a frame. */
    private enum Form {
        IN_PLACE, ARRAY_TO_ARRAY, DIRECT_BUFFER;

        /** The byte at which the frame begins in the direct buffer: an odd one. */
        private static final int OFFSET = 3;

        /** Processes a copy of the frame; gives the flag and then the cleaned samples. */
        short[] process(KorvaneVad vad, short[] frame) {
            short[] result = new short[1 + frame.length];
            short[] cleaned = frame.clone();
            boolean speech;
            switch (this) {
                case IN_PLACE:
                    speech = vad.process(cleaned);
                    break;
                case ARRAY_TO_ARRAY:
                    short[] noisy = frame.clone();
                    Arrays.fill(cleaned, (short) 0x5555);
                    speech = vad.process(noisy, cleaned);
                    assertArrayEquals("the frame was written to", frame, noisy);
                    break;
                default:
                    speech = processBuffer(vad, cleaned);
            }
            result[0] = (short) (speech ? 1 : 0);
            System.arraycopy(cleaned, 0, result, 1, cleaned.length);
            return result;
        }

        private static boolean processBuffer(KorvaneVad vad, short[] samples) {
            int bytes = 2 * samples.length;
            ByteBuffer buffer = ByteBuffer.allocateDirect(OFFSET + bytes + OFFSET);
            for (int i = 0; i < buffer.capacity(); ++i) {
                buffer.put(i, (byte) 0x55);
            }
            buffer.position(OFFSET).limit(OFFSET + bytes);
            // A view that shares the memory, so that the buffer's own position stays.
            ShortBuffer view = buffer.slice().order(ByteOrder.nativeOrder()).asShortBuffer();
            view.duplicate().put(samples);
            boolean speech = vad.process(buffer);
            assertEquals(OFFSET, buffer.position());
            assertEquals(OFFSET + bytes, buffer.limit());
            buffer.clear();
            for (int i = 0; i < OFFSET; ++i) {
                assertEquals("written before the frame", 0x55, buffer.get(i));
                assertEquals("written behind the frame", 0x55, buffer.get(OFFSET + bytes + i));
            }
            view.get(samples);
            return speech;
        }
    }

    private static final class Stream {
        final int rate;
        final ChannelMode mode;
        final int frameLength;
        final Form form;

        Stream(int rate, ChannelMode mode, int frameLength, Form form) {
            this.rate = rate;
            this.mode = mode;
            this.frameLength = frameLength;
            this.form = form;
        }

        short[][] frames() {
            return Speech.frames(rate, mode, frameLength);
        }

        @Override
        public String toString() {
            return rate + " Hz, " + mode + ", frames of " + frameLength + ", " + form;
        }
    }

    private static final int[] RATES = {8000, 16000, 48000};

    private static List<Stream> streams() {
        List<Stream> streams = new ArrayList<>();
        for (int rate : RATES) {
            for (ChannelMode mode : ChannelMode.values()) {
                for (int frameLength : new int[] {rate / 100, 1, 161, KorvaneVad.MAX_FRAME_LENGTH}) {
                    for (Form form : Form.values()) {
                        streams.add(new Stream(rate, mode, frameLength, form));
                    }
                }
            }
        }
        return streams;
    }

    /** The numbers of the channel modes in the C interface. */
    private static int number(ChannelMode mode) {
        switch (mode) {
            case MONO:
                return 1;
            case INTERLEAVED_STEREO:
                return 2;
            default:
                return 3;
        }
    }

    /** Runs the C program on all streams; gives its flags and samples, stream after stream. */
    private static ShortBuffer reference(List<Stream> streams) throws IOException, InterruptedException {
        File input = File.createTempFile("streams", null);
        File output = File.createTempFile("reference", null);
        try {
            try (DataOutputStream out = new DataOutputStream(
                         new BufferedOutputStream(new FileOutputStream(input), 1 << 20))) {
                for (Stream stream : streams) {
                    short[][] frames = stream.frames();
                    int samples = frames[0].length;
                    ByteBuffer record = ByteBuffer.allocate(16 + 2 * samples * frames.length)
                                                .order(ByteOrder.nativeOrder());
                    record.putInt(stream.rate).putInt(number(stream.mode));
                    record.putInt(stream.frameLength).putInt(frames.length);
                    for (short[] frame : frames) {
                        record.asShortBuffer().put(frame);
                        record.position(record.position() + 2 * samples);
                    }
                    out.write(record.array());
                }
            }
            Process process = new ProcessBuilder(System.getProperty("reference"))
                                      .redirectInput(input)
                                      .redirectOutput(output)
                                      .redirectError(ProcessBuilder.Redirect.INHERIT)
                                      .start();
            assertEquals("exit code of the C program", 0, process.waitFor());
            return ByteBuffer.wrap(Files.readAllBytes(output.toPath()))
                    .order(ByteOrder.nativeOrder())
                    .asShortBuffer();
        } finally {
            assertTrue(input.delete() & output.delete());
        }
    }

    @Test
    public void givesWhatTheCInterfaceGives() throws IOException, InterruptedException {
        List<Stream> streams = streams();
        ShortBuffer reference = reference(streams);
        for (Stream stream : streams) {
            short[][] frames = stream.frames();
            int speech = 0;
            boolean changed = false;
            try (KorvaneVad vad = new KorvaneVad()) {
                vad.configure(stream.rate, stream.mode, stream.frameLength);
                for (int f = 0; f < frames.length; ++f) {
                    short[] expected = new short[1 + frames[f].length];
                    reference.get(expected);
                    short[] result = stream.form.process(vad, frames[f]);
                    if (!Arrays.equals(expected, result)) {
                        assertArrayEquals(stream + ", frame " + f, expected, result);
                    }
                    speech += result[0];
                    changed |= result[1] != frames[f][0];
                }
            }
            // Speech and silence were both found, or the comparison would be of nothing. A single sample
            // has no level that stays above a threshold.
            assertTrue(stream.toString(), changed && speech < frames.length);
            assertTrue(stream.toString(), speech > 0 || stream.frameLength == 1);
        }
        assertFalse("the C program gave more", reference.hasRemaining());
    }
}
