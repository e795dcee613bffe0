package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** When an interrupt cancels a raw call, and when it does not. */
@Tag("memory")
class CancelOnInterruptTest {
    private final AtomicInteger calls = new AtomicInteger();
    private final AtomicInteger cancels = new AtomicInteger();

    @Test
    void aThreadThatIsInterruptedMakesNoCall() {
        Thread.currentThread().interrupt();
        assertEquals(0, new CancelOnInterrupt(() -> true).run(() -> {
            calls.incrementAndGet();
            return 5;
        }));
        assertTrue(Thread.interrupted());
        assertEquals(0, calls.get());
    }

    /** Interrupts a thread in a call that lasts until the latch is open; the call's result. */
    private int interrupted(CancelOnInterrupt interruptible, CountDownLatch end) throws InterruptedException {
        CountDownLatch begun = new CountDownLatch(1);
        Thread thread = new Thread(() -> calls.set(interruptible.run(() -> {
            begun.countDown();
            while (end.getCount() > 0) {
                Thread.onSpinWait();
            }
            return Thread.currentThread().isInterrupted() ? 7 : 0;
        })));
        thread.start();
        begun.await();
        thread.interrupt();
        thread.join();
        return calls.get();
    }

    @Test
    void aCancelIsRepeatedUntilItFindsTheCall() throws InterruptedException {
        CountDownLatch found = new CountDownLatch(1);
        assertEquals(7, interrupted(new CancelOnInterrupt(() -> {
            boolean finds = cancels.incrementAndGet() == 3;
            if (finds) {
                found.countDown();
            }
            return finds;
        }), found));
        assertEquals(3, cancels.get());
    }

    @Test
    void anInterruptAfterTheCallCancelsNothing() {
        CancelOnInterrupt interruptible = new CancelOnInterrupt(() -> cancels.incrementAndGet() > 0);
        assertEquals(5, interruptible.run(() -> 5));
        Thread.currentThread().interrupt();
        assertTrue(Thread.interrupted());
        assertEquals(0, cancels.get());
    }

    @Test
    void anInterruptOfACallThatEndsByItselfDoesNotWaitForever() throws InterruptedException {
        CountDownLatch tried = new CountDownLatch(1);
        assertEquals(7, interrupted(new CancelOnInterrupt(() -> {
            tried.countDown();
            return false;
        }), tried));
    }
}
