package com.talvane.orvex.comm.access;

import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.channels.AsynchronousCloseException;
import java.nio.channels.spi.AbstractInterruptibleChannel;
import java.util.function.BooleanSupplier;
import java.util.function.IntSupplier;

/**
 * Cancels one raw transfer when its thread is interrupted. The raw call itself notices no interrupt; the base class has
 * the interrupting thread call {@link #implCloseChannel}; what it misses, {@link MissedInterrupts} finds.
 */
final class CancelOnInterrupt extends AbstractInterruptibleChannel {
    private static final long RETRY_MS = 1;
    /** For how long cancels are repeated after one that has found something, as long as the raw close tries. */
    private static final int BOUND_MS = 3000;

    private final BooleanSupplier cancel;
    private final MissedInterrupts missed;
    private final Runnable closeIfInterrupted = this::closeIfInterrupted;
    /** The thread in the raw call, or null. Written under the lock of this object. */
    private volatile Thread caller;
    /** Set by the first cancel that has found something. */
    private Deadline bound;

    /**
     * For one transfer.
     *
     * @param cancel cancels it; false when there is nothing to cancel, because it has not quite begun or has ended
     */
    CancelOnInterrupt(BooleanSupplier cancel) {
        this(cancel, MissedInterrupts.ofAllCalls());
    }

    /** The same, with what looks for missed interrupts, or null. */
    CancelOnInterrupt(BooleanSupplier cancel, MissedInterrupts missed) {
        this.cancel = cancel;
        this.missed = missed;
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

    private boolean start() {
        synchronized (this) {
            caller = isOpen() ? Thread.currentThread() : null;
        }
        if (missed != null) {
            missed.add(closeIfInterrupted);
        }
        return caller != null;
    }

    private void over() {
        if (missed != null) {
            missed.remove(closeIfInterrupted);
        }
        synchronized (this) {
            caller = null;
        }
    }

    private void leave() {
        try {
            end(true);
        } catch (AsynchronousCloseException e) {
            // The interrupt, which the status tells of.
        }
    }

    /** Cancels the transfer on a thread of its own when an interrupt of its thread has called nothing. */
    private void closeIfInterrupted() {
        Thread thread = caller;
        if (thread != null && thread.isInterrupted() && isOpen()) {
            // A daemon, as the thread is that looks.
            new Thread(this::closeQuietly, "orvex-usb-cancel").start();
        }
    }

    private void closeQuietly() {
        try {
            close();
        } catch (IOException e) {
            throw new UncheckedIOException(e); // the close below throws none
        }
    }

    /**
     * Cancels until the transfer is over: it may not have begun, and of a write of several packets one cancel ends one.
     * A transfer that does not come back is left to the library. Called once, on the interrupting thread.
     */
    @Override
    protected synchronized void implCloseChannel() {
        Waits.waitWhile(this, this::isToBeCancelledAgain, RETRY_MS, () -> { });
    }

    /** Cancels, unless the transfer is over or does not come back. */
    private boolean isToBeCancelledAgain() {
        if (caller == null || (bound != null && bound.isOver())) {
            return false;
        }
        if (cancel.getAsBoolean() && bound == null) {
            bound = new Deadline(BOUND_MS);
        }
        return true;
    }
}
