package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.ref.Reference;
import java.lang.ref.WeakReference;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicBoolean;
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

    /** It may begin late. */
    @Test
    void aTransferThatHasNotBegunIsCancelledForAsLongAsThatTakes() throws InterruptedException {
        CountDownLatch last = new CountDownLatch(1);
        Deadline late = new Deadline(4000);
        assertEquals(7, interrupted(new CancelOnInterrupt(() -> {
            if (late.isOver()) {
                last.countDown();
            }
            return false;
        }), last));
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
    void anInterruptAfterTheCallCancelsNothing() throws InterruptedException {
        CancelOnInterrupt interruptible = new CancelOnInterrupt(() -> cancels.incrementAndGet() > 0);
        assertEquals(5, interruptible.run(() -> 5));
        Thread interrupter = new Thread(Thread.currentThread()::interrupt);
        interrupter.start();
        while (!Thread.interrupted()) {
            Thread.onSpinWait();
        }
        interrupter.join();
        assertTrue(interruptible.isOpen());
        assertEquals(0, cancels.get());
    }

    /** Neither its thread keeps it, nor what looks for missed interrupts. */
    @Test
    void aCallThatIsOverIsForgotten() {
        MissedInterrupts missed = new MissedInterrupts();
        WeakReference<CancelOnInterrupt> call = new WeakReference<>(whatHasRun(missed));
        Deadline deadline = new Deadline(30_000);
        while (call.get() != null && !deadline.isOver()) {
            System.gc();
        }
        assertNull(call.get());
        Reference.reachabilityFence(missed);
    }

    private static CancelOnInterrupt whatHasRun(MissedInterrupts missed) {
        CancelOnInterrupt interruptible = new CancelOnInterrupt(() -> false, missed);
        interruptible.run(() -> 5);
        return interruptible;
    }

    /** An interrupt by the own thread calls no hook, like one that comes just before the call in Java 17. */
    @Test
    @Timeout(60)
    void anInterruptThatCalledNoHookIsFound() throws InterruptedException {
        CountDownLatch end = new CountDownLatch(1);
        AtomicBoolean keepsTheProgramAlive = new AtomicBoolean();
        CancelOnInterrupt call = new CancelOnInterrupt(() -> {
            keepsTheProgramAlive.set(!Thread.currentThread().isDaemon());
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
        assertFalse(keepsTheProgramAlive.get());
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
