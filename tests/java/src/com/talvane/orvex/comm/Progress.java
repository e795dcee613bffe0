package com.talvane.orvex.comm;

import java.util.concurrent.TimeUnit;

/**
 * Reports the progress of long work when the system property "orvex.test.progress" asks for it: how far it is, and a
 * row of a table at its end.
 */
final class Progress {
    private static final boolean TOLD = Boolean.getBoolean("orvex.test.progress");
    private static final long EVERY = TimeUnit.SECONDS.toNanos(2);

    private final String what;
    private final int count;
    private long start;
    private long next;

    Progress(String what, int count) {
        this.what = what;
        this.count = count;
    }

    void begin() {
        start = System.nanoTime();
        next = start;
    }

    void done(int number) {
        long now = System.nanoTime();
        if (TOLD && now >= next) {
            System.err.printf("\r%s: %,d of %,d   ", what, number, count);
            next = now + EVERY;
        }
    }

    /** The row: work, count, seconds, and the growth of threads, descriptors, memory and references. */
    void end(Footprint before, Footprint after, int keptKb) {
        if (TOLD) {
            System.err.print("\r\u001b[K");
            System.out.printf("row: %-20s %,10d %8.0f %+8d %+12d %+,10d %,10d %+11d%n", what, count,
                    (System.nanoTime() - start) / 1e9, after.threads() - before.threads(),
                    after.descriptors() - before.descriptors(), after.residentKb() - before.residentKb(), keptKb,
                    after.references() - before.references());
        }
    }
}
