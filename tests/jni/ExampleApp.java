/** Lets the examples listen to a tone until 50 frames of it are heard, and find speech in a second of silence. */
public final class ExampleApp {
    private ExampleApp() {}

    /**
     * Fails where an example hears less or more.
     *
     * @param arguments none
     * @throws InterruptedException never
     */
    public static void main(String[] arguments) throws InterruptedException {
        int[] heard = new int[1];
        Listener listener = new Listener() {
            @Override
            void onSpeech(short[] frame) {
                if (++heard[0] == 50) {
                    interrupt();
                }
            }
        };
        listener.start();
        listener.join();
        if (heard[0] != 50) {
            throw new AssertionError("heard in " + heard[0] + " frames");
        }
        int[] told = new int[2];
        new SpeechFinder() {
            @Override
            void onSpeech(double start, double end) {
                ++told[0];
            }

            @Override
            public void onResult(com.korvane.vad.KorvaneStream.Result result) {
                ++told[1];
            }
        }.find(new short[16000]);
        if (told[0] != 0 || told[1] != 100) {
            throw new AssertionError("found " + told[0] + " in " + told[1] + " frames");
        }
    }
}
