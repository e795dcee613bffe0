package com.talvane.orvex.comm.tool;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;

/**
 * Turns Ctrl-C into a request: the command polls for it, releases what it holds and closes this object; only then does
 * the process end. After some seconds the process ends even if the command has not closed this object.
 */
final class StopRequest implements AutoCloseable {
    private static final long PATIENCE_SECONDS = 5;

    private final CountDownLatch made = new CountDownLatch(1);
    private final CountDownLatch served = new CountDownLatch(1);
    private final Thread hook = new Thread(this::holdTheEnd);

    StopRequest() {
        Runtime.getRuntime().addShutdownHook(hook);
    }

    private void holdTheEnd() {
        made.countDown();
        try {
            served.await(PATIENCE_SECONDS, TimeUnit.SECONDS);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** Waits for the request; false if it does not come within this time. */
    boolean comesWithin(long milliseconds) throws InterruptedException {
        return made.await(milliseconds, TimeUnit.MILLISECONDS);
    }

    @Override
    public void close() {
        served.countDown();
        try {
            Runtime.getRuntime().removeShutdownHook(hook);
        } catch (IllegalStateException e) {
            // The process is ending: the hook has run.
        }
    }
}
