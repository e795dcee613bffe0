package com.talvane.orvex.comm.access;

import java.util.ArrayDeque;
import java.util.Deque;
import java.util.Objects;
import java.util.concurrent.Executor;
import java.util.concurrent.RejectedExecutionException;

/**
 * The calls of one listener: one after another, in the order in which they were posted, on the threads of an executor.
 *
 * <p>Threads: any. The listener is called without a lock.
 */
final class ListenerCalls {
    /** The calls that this thread is in the middle of; null on most threads. */
    private static final ThreadLocal<ListenerCalls> CURRENT = new ThreadLocal<>();

    private final Executor executor;
    private final int most;
    private final Deque<Runnable> waiting = new ArrayDeque<>();
    /** Whether the executor has been asked for the next call. */
    private boolean isAsked;
    private Thread caller;
    /** Whether the call that is under way waits for the end of calls, its own or others. */
    private boolean waitsItself;
    private boolean ended;

    /**
     * For one listener.
     *
     * @param executor runs the calls, one task for each
     * @param most     as many calls may wait
     */
    ListenerCalls(Executor executor, int most) {
        this.executor = Objects.requireNonNull(executor, "executor");
        this.most = most;
    }

    /** Has the listener called. Waits while as many calls wait as may. Returns false when the calls have ended. */
    boolean post(Runnable call) {
        synchronized (this) {
            Waits.waitWhile(this, () -> !ended && waiting.size() >= most);
            if (ended) {
                return false;
            }
            waiting.add(call);
        }
        askForNext();
        return true;
    }

    private void askForNext() {
        synchronized (this) {
            if (isAsked || waiting.isEmpty()) {
                return;
            }
            isAsked = true;
        }
        try {
            executor.execute(this::callNext);
        } catch (RejectedExecutionException e) {
            if (hasEnded()) {
                return;
            }
            end();
            Log.warning("the executor of a listener refuses its calls, so it gets no more", e);
            report(e);
        }
    }

    private void callNext() {
        Runnable call = begin();
        try {
            if (call != null) {
                call.run();
            }
        } catch (Throwable e) {
            Log.warning("a listener has thrown an exception", e);
            report(e);
        } finally {
            CURRENT.remove();
            finish();
        }
        askForNext();
    }

    private synchronized Runnable begin() {
        CURRENT.set(this);
        caller = Thread.currentThread();
        notifyAll();
        return waiting.poll();
    }

    private synchronized void finish() {
        caller = null;
        isAsked = false;
        notifyAll();
    }

    /** As if the exception had ended the thread, which it does not. */
    private static void report(Throwable problem) {
        Thread thread = Thread.currentThread();
        try {
            thread.getUncaughtExceptionHandler().uncaughtException(thread, problem);
        } catch (RuntimeException | Error e) {
            // The virtual machine ignores it, too.
        }
    }

    private synchronized boolean hasEnded() {
        return ended;
    }

    /** No call begins from now on. */
    synchronized void end() {
        ended = true;
        waiting.clear();
        notifyAll();
    }

    /** After the end: waits for the call that is under way, unless that is in here itself, for this end or another. */
    void awaitEnd() {
        ListenerCalls own = CURRENT.get();
        if (own != null) {
            own.setWaits(true);
        }
        awaitCall();
        if (own != null) {
            own.setWaits(false);
        }
    }

    private synchronized void awaitCall() {
        Waits.waitWhile(this, () -> caller != null && !waitsItself);
    }

    private synchronized void setWaits(boolean waits) {
        waitsItself = waits;
        notifyAll();
    }
}
