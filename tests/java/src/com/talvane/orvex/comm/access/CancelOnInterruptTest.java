package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;

/** When an interrupt cancels a raw call, and when it does not. */
@Tag("memory")
class CancelOnInterruptTest {
    private final AtomicInteger calls = new AtomicInteger();
    private final AtomicInteger cancels = new AtomicInteger();

    @Test
    void aThreadThatIsInterruptedMakesNoCall() {
        Thread.currentThread().interrupt();
        assertEquals(0, new CancelOnInterrupt(() -> { }).run(() -> {
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

    /** A cancel that ends the call when it is made for the third time. */
    private Runnable thirdCancel(CountDownLatch end) {
        return () -> {
            if (cancels.incrementAndGet() == 3) {
                end.countDown();
            }
        };
    }

    @Test
    void aCancelIsRepeatedUntilTheCallIsOver() throws InterruptedException {
        CountDownLatch end = new CountDownLatch(1);
        assertEquals(7, interrupted(new CancelOnInterrupt(thirdCancel(end)), end));
        assertTrue(cancels.get() >= 3);
    }

    @Test
    void anInterruptAfterTheCallCancelsNothing() {
        CancelOnInterrupt interruptible = new CancelOnInterrupt(cancels::incrementAndGet);
        assertEquals(5, interruptible.run(() -> 5));
        Thread.currentThread().interrupt();
        assertTrue(Thread.interrupted());
        assertEquals(0, cancels.get());
    }

    /** An interrupt by the own thread calls no hook, like one that comes just before the call in Java 17. */
    @Test
    @Timeout(60)
    void anInterruptThatCalledNoHookIsFound() throws InterruptedException {
        CountDownLatch end = new CountDownLatch(1);
        CancelOnInterrupt call = new CancelOnInterrupt(thirdCancel(end), new MissedInterrupts());
        assertEquals(6, call.run(() -> {
            Thread.currentThread().interrupt();
            while (end.getCount() > 0) {
                Thread.onSpinWait();
            }
            return 6;
        }));
        assertTrue(Thread.interrupted());
    }

    @Test
    @Timeout(60)
    void aMissedInterruptIsFoundInEachOfManyCalls() throws InterruptedException {
        for (int i = 0; i < 3; i++) {
            cancels.set(0);
            anInterruptThatCalledNoHookIsFound();
        }
    }
}
