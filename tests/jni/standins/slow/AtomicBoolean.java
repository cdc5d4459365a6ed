package slow;

/** As AtomicReference; false at first. */
public final class AtomicBoolean extends AtomicReference<Boolean> {
    public AtomicBoolean() {
        set(false);
    }
}
