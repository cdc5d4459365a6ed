import com.korvane.vad.KorvaneVad;

/** An app that uses a part of the class, to be shrunk with it. */
public final class ShrunkApp {
    private ShrunkApp() {}

    /**
     * Finds a square wave of 1 kHz after 720 samples of delay and 480 of onset.
     *
     * @param arguments none
     */
    public static void main(String[] arguments) {
        short[] frame = new short[160];
        try (KorvaneVad vad = new KorvaneVad()) {
            vad.configure(16000, KorvaneVad.ChannelMode.MONO, frame.length);
            for (int f = 0; f < 10; ++f) {
                for (int i = 0; i < frame.length; ++i) {
                    frame[i] = (short) (i % 16 < 8 ? 8000 : -8000);
                }
                if (vad.process(frame) != (f >= 6)) {
                    throw new AssertionError("frame " + f);
                }
            }
        }
    }
}
