package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** When a waiting read sleeps, and when it does not. */
@Tag("memory")
class ReportPausesTest {
    private static final int TIMES = 200;
    /** A pause is 4.7 ms; no sleep ends before this much of it, on average. */
    private static final double LEAST_MS = 2;

    private final ReportPauses pauses = new ReportPauses();
    private final Deadline none = new Deadline(Deadline.FOREVER);

    private double millisecondsOf(Runnable work) {
        long start = System.nanoTime();
        for (int i = 0; i < TIMES; i++) {
            work.run();
        }
        return (System.nanoTime() - start) / 1e6 / TIMES;
    }

    private void letTheFirstStretchPass() {
        long end = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(25);
        while (System.nanoTime() < end) {
            Thread.onSpinWait();
        }
    }

    @Test
    void aReadDoesNotSleepAfterAQuestion() {
        letTheFirstStretchPass();
        double took = millisecondsOf(() -> {
            pauses.awaitAnswer();
            pauses.sleep(none);
        });
        assertTrue(took < LEAST_MS, () -> took + " ms");
    }

    @Test
    void aReadThatHasWaitedForAWhileSleeps() {
        letTheFirstStretchPass();
        double took = millisecondsOf(() -> pauses.sleep(none));
        assertTrue(took > LEAST_MS, () -> took + " ms");
    }

    @Test
    void nobodySleepsBeyondTheEndOfTheTime() {
        letTheFirstStretchPass();
        Deadline over = new Deadline(1);
        letTheFirstStretchPass();
        double took = millisecondsOf(() -> pauses.sleep(over));
        assertTrue(took < LEAST_MS, () -> took + " ms");
    }

    @Test
    void anInterruptEndsTheSleep() {
        letTheFirstStretchPass();
        Thread.currentThread().interrupt();
        try {
            double took = millisecondsOf(() -> pauses.sleep(none));
            assertTrue(took < LEAST_MS, () -> took + " ms");
        } finally {
            assertTrue(Thread.interrupted());
        }
    }
}
