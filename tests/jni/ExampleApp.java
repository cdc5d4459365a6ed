/** Lets the example listen to a tone until it has heard 50 frames of it. */
public final class ExampleApp {
    private ExampleApp() {}

    /**
     * Fails where the example ends earlier.
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
    }
}
