package com.talvane.orvex.comm.access;

import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.LockSupport;

/**
 * The pauses of a read that waits for reports of one HID device. The raw read polls and keeps a core busy, so a read
 * makes raw reads of a millisecond and sleeps between them. It does not sleep for a while after a report was written:
 * the answer is awaited without a pause.
 *
 * <p>Threads: one reads and any number write. No method takes a lock.
 */
final class ReportPauses {
    /** The time-out of a raw read, in milliseconds. */
    static final int LOOK_MS = 1;
    /**
     * A raw read that finds nothing ends together with a millisecond of the wall clock. The next one begins 4.7 ms
     * later, shortly before the end of a millisecond, and so lasts 0.3 ms and not a whole one.
     */
    private static final long PAUSE_NANOS = 4_700_000;
    /** For how long a read does not sleep after a report was written, or the device was opened. */
    private static final long AWAKE_NANOS = TimeUnit.MILLISECONDS.toNanos(20);

    private volatile long awakeFrom = System.nanoTime();
    private volatile Thread sleeper;

    /** A report is about to be written: wakes the read. */
    void awaitAnswer() {
        awakeFrom = System.nanoTime();
        LockSupport.unpark(sleeper);
    }

    /** Sleeps until it is time for the next raw read: by its own time, when a report is written, or at an interrupt. */
    void sleep(Deadline deadline) {
        sleeper = Thread.currentThread();
        if (System.nanoTime() - awakeFrom >= AWAKE_NANOS) {
            LockSupport.parkNanos(this, deadline.leftNanos(PAUSE_NANOS));
        }
        sleeper = null;
    }
}
