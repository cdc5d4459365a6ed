package slow;

import java.util.concurrent.locks.LockSupport;

/**
 * What the classes take their locks with, but every access waits first: of two threads, the other gets between
 * any two of them.
 */
public class AtomicReference<T> {
    private final java.util.concurrent.atomic.AtomicReference<T> value =
            new java.util.concurrent.atomic.AtomicReference<>();

    private java.util.concurrent.atomic.AtomicReference<T> slowly() {
        LockSupport.parkNanos(10_000_000);
        return value;
    }

    public final T get() {
        return slowly().get();
    }

    public final void set(T next) {
        slowly().set(next);
    }

    public final boolean compareAndSet(T expected, T next) {
        return slowly().compareAndSet(expected, next);
    }
}
