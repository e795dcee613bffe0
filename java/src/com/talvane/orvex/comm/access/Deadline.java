package com.talvane.orvex.comm.access;

import java.util.concurrent.TimeUnit;

/** When something has to end that may take several raw calls or looks. */
final class Deadline {
    /** The time-out that waits for ever, as the raw calls have it. */
    static final int FOREVER = 0;

    private final long start = System.nanoTime();
    private final int timeout;

    Deadline(int timeout) {
        this.timeout = timeout;
    }

    boolean isOver() {
        return timeout != FOREVER && elapsed() >= timeout;
    }

    /** The time-out for the next raw call: what is left, 1 ms at least, since 0 would be for ever. */
    int left() {
        return timeout == FOREVER ? FOREVER : (int) Math.max(1, timeout - elapsed());
    }

    /** The time that is left in nanoseconds, {@code most} at most. */
    long leftNanos(long most) {
        long left = timeout == FOREVER ? most : TimeUnit.MILLISECONDS.toNanos(timeout - elapsed());
        return Math.min(most, Math.max(0, left));
    }

    private long elapsed() {
        return TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - start);
    }
}
