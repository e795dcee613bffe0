package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayDeque;
import java.util.Deque;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.Executor;
import java.util.concurrent.atomic.AtomicBoolean;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.Timeout.ThreadMode;

/** Who waits for the calls of a listener, and for what. */
@Tag("memory")
@Timeout(value = 60, threadMode = ThreadMode.SEPARATE_THREAD)
class ListenerWaitsTest {
    private static final int MOST = 10;

    private final Deque<Runnable> tasks = new ArrayDeque<>();
    private final ListenerCalls calls = new ListenerCalls(tasks::add, MOST);

    private static void await(CountDownLatch latch) {
        try {
            latch.await();
        } catch (InterruptedException e) {
            throw new AssertionError(e);
        }
    }

    /** A thread that posts what does not fit any more; the first of the calls that wait is given. */
    private Thread blockedPost(Runnable first, AtomicBoolean isTaken) {
        calls.post(first);
        for (int i = 1; i < MOST; i++) {
            calls.post(() -> { });
        }
        Thread thread = Threads.started(() -> isTaken.set(calls.post(() -> { })));
        Threads.awaitState(thread, Thread.State.WAITING);
        return thread;
    }

    @Test
    void whoPostsWaitsForRoomAndNotForTheEndOfACall() throws InterruptedException {
        AtomicBoolean isTaken = new AtomicBoolean();
        CountDownLatch mayEnd = new CountDownLatch(1);
        Thread post = blockedPost(() -> await(mayEnd), isTaken);
        Thread call = Threads.started(tasks.remove());
        post.join();
        assertTrue(isTaken.get());
        mayEnd.countDown();
        call.join();
    }

    @Test
    void theEndOfTheCallsEndsAWaitForRoom() throws InterruptedException {
        AtomicBoolean isTaken = new AtomicBoolean(true);
        Thread post = blockedPost(() -> { }, isTaken);
        calls.end();
        post.join();
        assertFalse(isTaken.get());
    }

    /** Starts a call on a thread of its own, which goes on when this thread does. */
    private static void begin(ListenerCalls calls, Runnable call) {
        CountDownLatch hasBegun = new CountDownLatch(1);
        CountDownLatch goesOn = new CountDownLatch(1);
        calls.post(() -> {
            hasBegun.countDown();
            await(goesOn);
            call.run();
        });
        await(hasBegun);
        goesOn.countDown();
    }

    private static ListenerCalls onThreads() {
        return new ListenerCalls(Threads::started, MOST);
    }

    @Test
    void aThreadThatWasInACallOnceWaitsForTheEndLikeAnyOther() {
        Thread self = Thread.currentThread();
        AtomicBoolean isDone = new AtomicBoolean();
        Deque<Executor> executors = new ArrayDeque<>(List.of(Runnable::run, Threads::started));
        ListenerCalls twice = new ListenerCalls(task -> executors.remove().execute(task), MOST);
        twice.post(() -> { });
        begin(twice, () -> {
            Threads.awaitState(self, Thread.State.WAITING);
            isDone.set(true);
        });
        twice.end();
        twice.awaitEnd();
        assertTrue(isDone.get());
    }

    @Test
    void aCallIsWaitedForAgainWhenItWaitsNoLonger() {
        Thread self = Thread.currentThread();
        AtomicBoolean isDone = new AtomicBoolean();
        AtomicBoolean hasWaited = new AtomicBoolean();
        ListenerCalls own = onThreads();
        begin(own, () -> {
            own.awaitEnd();
            hasWaited.set(true);
            Threads.awaitState(self, Thread.State.WAITING);
            isDone.set(true);
        });
        while (!hasWaited.get()) {
            Thread.onSpinWait();
        }
        own.end();
        own.awaitEnd();
        assertTrue(isDone.get());
    }

    @Test
    void whoWaitsForACallThatBeginsToWaitItselfGoesOn() {
        Thread self = Thread.currentThread();
        CountDownLatch isOver = new CountDownLatch(1);
        ListenerCalls first = onThreads();
        ListenerCalls second = onThreads();
        begin(second, () -> await(isOver));
        begin(first, () -> {
            Threads.awaitState(self, Thread.State.WAITING);
            second.awaitEnd();
        });
        first.awaitEnd();
        isOver.countDown();
    }
}
