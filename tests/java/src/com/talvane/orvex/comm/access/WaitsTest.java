package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** Waits that an interrupt does not end. */
@Tag("memory")
class WaitsTest {
    @Test
    void anInterruptIsKeptUntilTheConditionNoLongerHolds() {
        AtomicInteger looks = new AtomicInteger();
        AtomicInteger jobs = new AtomicInteger();
        Thread.currentThread().interrupt();
        synchronized (this) {
            Waits.waitWhile(this, () -> looks.incrementAndGet() <= 3, 1, jobs::incrementAndGet);
        }
        assertTrue(Thread.interrupted());
        assertEquals(4, looks.get());
        assertEquals(3, jobs.get());
    }
}
