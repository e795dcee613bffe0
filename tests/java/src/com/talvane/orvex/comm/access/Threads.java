package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertNotEquals;

/** Threads of tests. */
final class Threads {
    private Threads() {
    }

    /** A thread that does the work and does not keep the process alive. */
    static Thread started(Runnable work) {
        Thread thread = new Thread(work);
        thread.setDaemon(true);
        thread.start();
        return thread;
    }

    /** Waits until the thread is in the state; fails when it has ended before. The caller has a time limit. */
    static void awaitState(Thread thread, Thread.State state) {
        while (thread.getState() != state) {
            assertNotEquals(Thread.State.TERMINATED, thread.getState());
            Thread.onSpinWait();
        }
    }
}
