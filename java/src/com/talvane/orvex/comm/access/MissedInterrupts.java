package com.talvane.orvex.comm.access;

import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.Executor;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicBoolean;

/**
 * Finds interrupts that the hook of interruptible channels misses. Before Java 21 {@code Thread.interrupt} looks for
 * the hook first and sets the status afterwards. A thread that enters its call between the two is interrupted, but the
 * hook is not called. So while calls run, their threads are looked at ten times a second.
 */
final class MissedInterrupts {
    private static final boolean POSSIBLE = Runtime.version().feature() < 21;
    private static final Executor LATER = CompletableFuture.delayedExecutor(100, TimeUnit.MILLISECONDS, Runnable::run);
    private static final MissedInterrupts OF_ALL_CALLS = new MissedInterrupts();

    private final Set<Runnable> looks = ConcurrentHashMap.newKeySet();
    private final AtomicBoolean isScheduled = new AtomicBoolean();

    /** Returns what looks at all calls of the process, or null when this Java misses no interrupt. */
    static MissedInterrupts ofAllCalls() {
        return POSSIBLE ? OF_ALL_CALLS : null;
    }

    /** Runs {@code look} again and again, on a thread of the system that it must not hold up, until it is removed. */
    void add(Runnable look) {
        looks.add(look);
        schedule();
    }

    void remove(Runnable look) {
        looks.remove(look);
    }

    private void schedule() {
        if (!isScheduled.get() && !looks.isEmpty() && isScheduled.compareAndSet(false, true)) {
            LATER.execute(this::lookAtAll);
        }
    }

    private void lookAtAll() {
        isScheduled.set(false);
        looks.forEach(Runnable::run);
        schedule();
    }
}
