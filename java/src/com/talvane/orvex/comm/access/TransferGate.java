package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;
import java.util.HashSet;
import java.util.Set;
import java.util.concurrent.TimeUnit;
import java.util.function.BooleanSupplier;
import java.util.function.IntSupplier;

/**
 * Keeps the start of transfers apart from opens, closes and resets, which is stricter than the raw library asks for. A
 * raw transfer starts when it looks its device up, in a map that opens and closes change.
 *
 * <p>From outside nobody sees when a raw transfer has made that look-up, except in two ways: it has come back, or a
 * cancel has found it under way. So whoever wants to be alone shuts the gate, gives short transfers the time to end,
 * and then cancels until each one that is left was found. Only reads are cancelled, since a cancelled read tells what
 * has come and can be taken up again; and everything on a device that is being closed.
 */
final class TransferGate {
    private static final long SHORT_MS = 10;
    /** The raw close and reset deal with a transfer that does not come back. */
    private static final long BOUND_NANOS = TimeUnit.SECONDS.toNanos(5);

    /** What a transfer belongs to: one opening of a device. */
    @FunctionalInterface
    interface Owner {
        /** Returns true once no transfer may start. */
        boolean hasEnded();
    }

    /** A raw transfer: whose it is, whether it may be cancelled now, how, and whether it was. */
    static final class Transfer {
        private final Owner owner;
        private final BooleanSupplier mayBeCancelled;
        private final BooleanSupplier cancel;
        private volatile boolean cancelled;

        Transfer(Owner owner, BooleanSupplier mayBeCancelled, BooleanSupplier cancel) {
            this.owner = owner;
            this.mayBeCancelled = mayBeCancelled;
            this.cancel = cancel;
        }

        boolean wasCancelled() {
            return cancelled;
        }

        private void cancelIfAllowed() {
            if (mayBeCancelled.getAsBoolean() && cancel.getAsBoolean()) {
                cancelled = true;
            }
        }
    }

    private final Set<Transfer> running = new HashSet<>();
    private boolean shut;

    /** Makes a raw transfer, once the gate is open; not open, when its owner has ended by then. */
    int pass(Transfer transfer, IntSupplier call) {
        if (!enter(transfer)) {
            return UsbAccessCode.NOT_OPEN.code();
        }
        try {
            return call.getAsInt();
        } finally {
            leave(transfer);
        }
    }

    private synchronized boolean enter(Transfer transfer) {
        waitWhile(() -> shut, 0);
        return !transfer.owner.hasEnded() && running.add(transfer);
    }

    private synchronized void leave(Transfer transfer) {
        running.remove(transfer);
        notifyAll();
    }

    /**
     * Makes a raw call that no transfer may start beside, and none run beside of one owner (null for no matter).
     * The caller holds the session lock, so there is one at a time.
     */
    int alone(Owner concerned, IntSupplier call) {
        shut(concerned);
        try {
            return call.getAsInt();
        } finally {
            open();
        }
    }

    private synchronized void shut(Owner concerned) {
        shut = true;
        long start = System.nanoTime();
        waitWhile(() -> {
            boolean patient = System.nanoTime() - start < BOUND_NANOS;
            return running.stream().anyMatch(t -> !t.cancelled || (t.owner == concerned && patient));
        }, SHORT_MS);
    }

    private synchronized void open() {
        shut = false;
        notifyAll();
    }

    /**
     * Waits, with a look at what can be cancelled each period. An interrupt is kept for later: none of this is long.
     */
    private void waitWhile(BooleanSupplier condition, long periodMs) {
        boolean interrupted = false;
        while (condition.getAsBoolean()) {
            try {
                wait(periodMs);
            } catch (InterruptedException e) {
                interrupted = true;
            }
            if (periodMs > 0) {
                running.forEach(Transfer::cancelIfAllowed);
            }
        }
        if (interrupted) {
            Thread.currentThread().interrupt();
        }
    }
}
