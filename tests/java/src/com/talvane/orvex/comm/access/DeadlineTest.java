package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** What is left of a time-out. */
@Tag("memory")
class DeadlineTest {
    private static final int LONG_MS = 1_000_000;

    @Test
    void whatIsLeftIsTheTimeOutWithoutTheTimeThatHasPassed() {
        long before = System.nanoTime();
        Deadline deadline = new Deadline(LONG_MS);
        int left = deadline.left();
        long leftNanos = deadline.leftNanos(Long.MAX_VALUE);
        long passed = TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - before);
        assertTrue(left <= LONG_MS && left >= LONG_MS - passed, () -> left + " after " + passed);
        assertTrue(leftNanos <= TimeUnit.MILLISECONDS.toNanos(LONG_MS));
        assertTrue(leftNanos >= TimeUnit.MILLISECONDS.toNanos(LONG_MS - passed));
        assertFalse(deadline.isOver());
    }

    @Test
    void aPauseIsNoLongerThanItsLimit() {
        assertEquals(7, new Deadline(LONG_MS).leftNanos(7));
        assertEquals(7, new Deadline(Deadline.FOREVER).leftNanos(7));
    }

    @Test
    void withoutATimeOutNothingIsEverOver() {
        Deadline deadline = new Deadline(Deadline.FOREVER);
        assertEquals(Deadline.FOREVER, deadline.left());
        assertFalse(deadline.isOver());
    }

    @Test
    void whenItIsOverARawCallGetsTheShortestTimeOutThereIs() {
        Deadline deadline = new Deadline(1);
        while (!deadline.isOver()) {
            Thread.onSpinWait();
        }
        assertEquals(1, deadline.left());
        assertEquals(0, deadline.leftNanos(7));
    }
}
