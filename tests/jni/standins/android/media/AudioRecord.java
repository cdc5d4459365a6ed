package android.media;

/**
 * Of the platform's class what the examples call: a microphone that hears a tone of 1 kHz and is cut off
 * after 10 s.
 */
public class AudioRecord {
    private int left; // samples

    public AudioRecord(int source, int rate, int channels, int encoding, int bytes) {
        if (source != MediaRecorder.AudioSource.VOICE_RECOGNITION || rate != 16000
                || channels != AudioFormat.CHANNEL_IN_MONO
                || encoding != AudioFormat.ENCODING_PCM_16BIT || bytes <= 0) {
            throw new IllegalArgumentException();
        }
    }

    public void startRecording() {
        left = 160000;
    }

    public int read(short[] samples, int offset, int size) {
        for (int i = 0; i < size; ++i) {
            samples[offset + i] = (short) (i % 16 < 8 ? 8000 : -8000);
        }
        left -= size;
        return left < 0 ? 0 : size;
    }

    public void release() {
        left = 0;
    }
}
