package com.talvane.orvex.comm.tool;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;

/**
 * Ctrl-C as a request: the command sees it here, gives back what it holds and closes this object, and only then the
 * process ends. A command that does not come to that is left behind after some seconds.
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

    /** Waits for the request; false when it was not made in this time. */
    boolean comesWithin(long milliseconds) throws InterruptedException {
        return made.await(milliseconds, TimeUnit.MILLISECONDS);
    }

    @Override
    public void close() {
        served.countDown();
        try {
            Runtime.getRuntime().removeShutdownHook(hook);
        } catch (IllegalStateException e) {
            // the process is ending: the hook has run
        }
    }
}
