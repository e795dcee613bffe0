package com.talvane.orvex.comm.access;

import java.io.IOException;
import java.nio.channels.AsynchronousCloseException;
import java.nio.channels.spi.AbstractInterruptibleChannel;
import java.util.function.BooleanSupplier;
import java.util.function.IntSupplier;

/**
 * Cancels one raw transfer when its thread is interrupted. The raw call itself notices no interrupt; the base class has
 * the interrupting thread call {@link #implCloseChannel}.
 */
final class CancelOnInterrupt extends AbstractInterruptibleChannel {
    private static final long RETRY_MS = 1;

    private final BooleanSupplier cancel;
    private boolean runs;

    /**
     * For one transfer.
     *
     * @param cancel cancels it; false when there is nothing to cancel, because it has not quite begun or has ended
     */
    CancelOnInterrupt(BooleanSupplier cancel) {
        this.cancel = cancel;
    }

    /**
     * Makes the raw call and returns its result, or 0 without the call when the thread has been interrupted already.
     * The interrupt status stays as it is: the caller sees there that the transfer may have been cancelled.
     */
    int run(IntSupplier call) {
        begin();
        try {
            return start() ? call.getAsInt() : 0;
        } finally {
            over();
            leave();
        }
    }

    private synchronized boolean start() {
        runs = isOpen();
        return runs;
    }

    private synchronized void over() {
        runs = false;
        notifyAll();
    }

    private void leave() {
        try {
            end(true);
        } catch (AsynchronousCloseException e) {
            // The interrupt, which the status tells of.
        }
    }

    /** On the interrupting thread: cancels until the cancel has found the transfer, or the transfer is over. */
    @Override
    protected synchronized void implCloseChannel() throws IOException {
        boolean interrupted = false;
        while (runs && !cancel.getAsBoolean()) {
            try {
                wait(RETRY_MS);
            } catch (InterruptedException e) {
                interrupted = true;
            }
        }
        if (interrupted) {
            Thread.currentThread().interrupt();
        }
    }
}
