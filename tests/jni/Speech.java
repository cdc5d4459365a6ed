import com.korvane.vad.KorvaneVad;
import com.korvane.vad.KorvaneVad.ChannelMode;
import java.io.DataInputStream;
import java.io.File;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Arrays;
import javax.sound.sampled.AudioFormat;
import javax.sound.sampled.AudioInputStream;
import javax.sound.sampled.AudioSystem;
import javax.sound.sampled.UnsupportedAudioFileException;

/** Real speech: the recordings of Debian's alsa-utils (48 kHz) and asterisk-core-sounds-en-wav (8 kHz). */
final class Speech {
    private static final String ALSA = "/usr/share/sounds/alsa/";
    private static final String ASTERISK = "/usr/share/asterisk/sounds/en_US_f_Allison/";
    private static final int HANGOVER = 19200;

    private Speech() {}

    /** An utterance between silences, longer than a frame and the hang-over; 8, 16 or 48 kHz. */
    static short[] left(int rate) {
        return utterance(rate, "vm-intro", "Front_Left");
    }

    /** Another one. */
    static short[] right(int rate) {
        return utterance(rate, "conf-invalid", "Rear_Right");
    }

    /** Frames of n samples per channel, of one utterance or two; what does not fill one is left out. */
    static short[][] frames(int rate, ChannelMode mode, int n) {
        short[] left = left(rate);
        short[] right = right(rate);
        short[][] frames = new short[Math.min(left.length, right.length) / n][];
        for (int f = 0; f < frames.length; ++f) {
            frames[f] = Arrays.copyOfRange(left, f * n, f * n + (mode == ChannelMode.MONO ? n : 2 * n));
            for (int i = 0; mode == ChannelMode.INTERLEAVED_STEREO && i < n; ++i) {
                frames[f][2 * i] = left[f * n + i];
                frames[f][2 * i + 1] = right[f * n + i];
            }
            if (mode == ChannelMode.PLANAR_STEREO) {
                System.arraycopy(right, f * n, frames[f], n, n);
            }
        }
        return frames;
    }

    private static short[] utterance(int rate, String at8000, String at48000) {
        // Every third sample makes 16 kHz of 48; the treble folds over.
        int step = rate == 16000 ? 3 : 1;
        short[] recording = rate == 8000 ? read(ASTERISK + at8000, 8000) : read(ALSA + at48000, 48000);
        int lead = KorvaneVad.MAX_FRAME_LENGTH;
        short[] samples = new short[lead + recording.length / step + HANGOVER + 2 * KorvaneVad.MAX_FRAME_LENGTH];
        for (int i = 0; i < recording.length / step; ++i) {
            samples[lead + i] = recording[i * step];
        }
        return samples;
    }

    private static short[] read(String name, int rate) {
        File file = new File(name + ".wav");
        try (AudioInputStream audio = AudioSystem.getAudioInputStream(file)) {
            AudioFormat format = audio.getFormat();
            if (format.getSampleRate() != rate || format.getChannels() != 1
                    || format.getSampleSizeInBits() != 16 || format.isBigEndian()) {
                throw new AssertionError(file + " has an unexpected format: " + format);
            }
            byte[] bytes = new byte[(int) audio.getFrameLength() * 2];
            new DataInputStream(audio).readFully(bytes);
            short[] samples = new short[bytes.length / 2];
            ByteBuffer.wrap(bytes).order(ByteOrder.LITTLE_ENDIAN).asShortBuffer().get(samples);
            return samples;
        } catch (IOException | UnsupportedAudioFileException e) {
            throw new AssertionError(file + ": install alsa-utils and asterisk-core-sounds-en-wav", e);
        }
    }
}
