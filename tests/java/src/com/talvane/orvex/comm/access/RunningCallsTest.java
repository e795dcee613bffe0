package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.UsbAccessCode;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.FutureTask;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.IntSupplier;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.Timeout.ThreadMode;

/** Which raw calls begin beside the end and the reset of a device, and which are waited for. */
@Tag("memory")
@Timeout(value = 60, threadMode = ThreadMode.SEPARATE_THREAD)
class RunningCallsTest {
    private final RunningCalls calls = new RunningCalls();
    private final CountDownLatch hasBegun = new CountDownLatch(1);
    private final CountDownLatch mayEnd = new CountDownLatch(1);
    private final AtomicInteger made = new AtomicInteger();

    /** A call that lasts until it may end; returns its number, from 0 on. */
    private int lasting() {
        hasBegun.countDown();
        try {
            mayEnd.await();
        } catch (InterruptedException e) {
            throw new AssertionError(e);
        }
        return made.getAndIncrement();
    }

    private static FutureTask<Integer> started(IntSupplier call) {
        FutureTask<Integer> task = new FutureTask<>(call::getAsInt);
        Threads.started(task);
        return task;
    }

    @Test
    void noCallBeginsAfterTheEnd() {
        calls.end();
        assertTrue(calls.hasEnded());
        assertEquals(UsbAccessCode.NOT_OPEN.code(), calls.make(made::incrementAndGet));
        assertEquals(UsbAccessCode.NOT_OPEN.code(), calls.read(made::incrementAndGet));
        assertEquals(0, made.get());
        assertTrue(calls.awaitNone());
    }

    @Test
    void theEndWaitsForCallsOfBothKindsButNotForever() throws Exception {
        CountDownLatch both = new CountDownLatch(2);
        IntSupplier call = () -> {
            both.countDown();
            return lasting();
        };
        started(() -> calls.make(call));
        started(() -> calls.read(call));
        both.await();
        calls.end();
        assertFalse(calls.awaitNone());
        Thread self = Thread.currentThread();
        started(() -> {
            Threads.awaitState(self, Thread.State.TIMED_WAITING);
            mayEnd.countDown();
            return 0;
        });
        assertTrue(calls.awaitNone());
        assertEquals(2, made.get());
    }

    @Test
    void aCallThatBeginsDuringAResetWaitsForItsEnd() throws Exception {
        FutureTask<Integer> reset = started(() -> calls.reset(() -> { }, this::lasting));
        hasBegun.await();
        int[] result = {-1};
        boolean[] isInterrupted = {false};
        Thread late = new Thread(() -> {
            result[0] = calls.make(made::getAndIncrement);
            isInterrupted[0] = Thread.currentThread().isInterrupted();
        });
        late.start();
        Threads.awaitState(late, Thread.State.WAITING);
        late.interrupt();
        mayEnd.countDown();
        late.join();
        assertEquals(0, reset.get());
        assertEquals(1, result[0]);
        assertTrue(isInterrupted[0]);
    }

    @Test
    void aResetDoesNotWaitForeverForAReadThatDoesNotComeBack() throws Exception {
        FutureTask<Integer> read = started(() -> calls.read(this::lasting));
        hasBegun.await();
        AtomicInteger cancels = new AtomicInteger();
        assertEquals(5, calls.reset(cancels::incrementAndGet, () -> 5));
        assertTrue(cancels.get() > 1);
        assertFalse(read.isDone());
        mayEnd.countDown();
        assertEquals(1, read.get(), "it moved nothing, so it is made again");
    }

    /** A wait lasts a second when it is in vain. */
    @Test
    void whereNoCallIsUnderWayNobodyWaits() {
        for (int i = 0; i < 100; i++) {
            assertTrue(calls.awaitNone());
        }
    }

    @Test
    void aResetWithoutReadsCancelsNothing() {
        AtomicInteger cancels = new AtomicInteger();
        assertEquals(5, calls.reset(cancels::incrementAndGet, () -> 5));
        assertEquals(0, cancels.get());
    }

    @Test
    void aReadIsMadeAgainOnlyWhenAResetFoundItWithNothing() throws Exception {
        calls.reset(() -> { }, () -> 0);
        assertEquals(0, calls.read(() -> made.getAndIncrement() == 0 ? 0 : 9), "an empty packet");
        FutureTask<Integer> read = started(() -> calls.read(() -> lasting() + 3));
        hasBegun.await();
        calls.reset(mayEnd::countDown, () -> 0);
        assertEquals(4, read.get());
        assertEquals(2, made.get());
    }
}
