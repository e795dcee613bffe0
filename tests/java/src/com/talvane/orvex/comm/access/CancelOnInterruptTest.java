package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.Timeout.ThreadMode;

/** When an interrupt cancels a raw call, and when it does not. */
@Tag("memory")
@Timeout(value = 60, threadMode = ThreadMode.SEPARATE_THREAD)
class CancelOnInterruptTest {
    private final AtomicInteger calls = new AtomicInteger();
    private final AtomicInteger cancels = new AtomicInteger();

    @Test
    void aThreadThatIsInterruptedMakesNoCall() {
        Thread.currentThread().interrupt();
        assertEquals(0, new CancelOnInterrupt(() -> false).run(() -> {
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

    /** Also when it has found something: that may have been another transfer. */
    @Test
    void aCancelIsRepeatedUntilTheCallIsOver() throws InterruptedException {
        CountDownLatch last = new CountDownLatch(1);
        assertEquals(7, interrupted(new CancelOnInterrupt(() -> {
            int number = cancels.incrementAndGet();
            if (number == 4) {
                last.countDown();
            }
            return number == 2;
        }), last));
        assertTrue(cancels.get() >= 4);
    }

    @Test
    void theInterruptingThreadDoesNotWaitForeverForACallThatDoesNotComeBack() throws InterruptedException {
        CountDownLatch begun = new CountDownLatch(1);
        Thread thread = new Thread(() -> new CancelOnInterrupt(() -> cancels.incrementAndGet() == 2).run(() -> {
            begun.countDown();
            synchronized (this) {
                return 0;
            }
        }));
        synchronized (this) {
            thread.start();
            begun.await();
            thread.interrupt();
            assertTrue(cancels.get() > 2);
        }
        thread.join();
    }

    @Test
    void anInterruptAfterTheCallCancelsNothing() {
        CancelOnInterrupt interruptible = new CancelOnInterrupt(() -> cancels.incrementAndGet() > 0);
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
        CancelOnInterrupt call = new CancelOnInterrupt(() -> {
            if (cancels.incrementAndGet() == 3) {
                end.countDown();
            }
            return false;
        }, new MissedInterrupts());
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
