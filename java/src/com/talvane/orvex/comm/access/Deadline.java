package com.talvane.orvex.comm.access;

import java.util.concurrent.TimeUnit;

/** When a call of several raw calls has to end. */
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

    /** The same for a call that may only take so long. */
    int left(int most) {
        return timeout == FOREVER ? most : Math.min(most, left());
    }

    private long elapsed() {
        return TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - start);
    }
}
