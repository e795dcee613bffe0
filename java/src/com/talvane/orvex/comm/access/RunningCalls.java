package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;
import java.util.function.IntSupplier;

/**
 * Counts the raw calls of one opening of a device that are under way.
 *
 * <p>A raw call names its device by a place in a list, so a call that is late would run on the next opening of that
 * place. None does: the step that counts a call also finds out that the opening has not ended, the call stays counted
 * until it has returned and nobody can cancel it any more, and the next opening begins when this one has ended and
 * none of its calls is counted. A call that reaches the library between the raw close and the next opening finds no
 * open device there.
 *
 * <p>Threads: any. No lock is held during a call, and a call that is counted waits for none of this package.
 */
final class RunningCalls {
    private static final int ENDED = -1;
    private static final long LOOK_MS = 10;
    /** For how long calls are waited for that should have been ended. */
    private static final int BOUND_MS = 1000;

    private volatile boolean ended;
    private int reads;
    private int others;
    /** How many resets have begun. */
    private int resets;
    private boolean isResetting;

    /** No call begins from now on. */
    synchronized void end() {
        ended = true;
    }

    boolean hasEnded() {
        return ended;
    }

    /** Makes a raw call that is no read from a pipe. Answers that the device is not open when the opening has ended. */
    int make(IntSupplier call) {
        if (begin(false) == ENDED) {
            return UsbAccessCode.NOT_OPEN.code();
        }
        try {
            return call.getAsInt();
        } finally {
            finish(false);
        }
    }

    /** Makes a raw read from a pipe, and makes it again when a reset has cancelled it before anything came. */
    int read(IntSupplier call) {
        int result;
        int before;
        int after;
        do {
            before = begin(true);
            if (before == ENDED) {
                return UsbAccessCode.NOT_OPEN.code();
            }
            try {
                result = call.getAsInt();
            } finally {
                after = finish(true);
            }
        } while (result == 0 && after != before);
        return result;
    }

    /** Waits for a reset to end and counts a call in. Returns how many resets have begun so far. */
    private synchronized int begin(boolean isRead) {
        Waits.waitWhile(this, () -> isResetting);
        if (ended) {
            return ENDED;
        }
        count(isRead, 1);
        return resets;
    }

    private synchronized int finish(boolean isRead) {
        count(isRead, -1);
        notifyAll();
        return resets;
    }

    private void count(boolean isRead, int change) {
        reads += isRead ? change : 0;
        others += isRead ? 0 : change;
    }

    /**
     * Makes the raw reset, beside which no other call may run. Waits for the calls that are under way and cancels the
     * reads among them that take longer than a moment. A read that does not come back is not waited for.
     */
    int reset(Runnable cancelReads, IntSupplier reset) {
        synchronized (this) {
            resets++;
            isResetting = true;
            Deadline bound = new Deadline(BOUND_MS);
            Waits.waitWhile(this, () -> others > 0 || (reads > 0 && !bound.isOver()), LOOK_MS, cancelReads);
        }
        try {
            return reset.getAsInt();
        } finally {
            synchronized (this) {
                isResetting = false;
                notifyAll();
            }
        }
    }

    /** After the end: waits until no call is under way. Returns false when one does not come back. */
    synchronized boolean awaitNone() {
        Deadline bound = new Deadline(BOUND_MS);
        Waits.waitWhile(this, () -> reads + others > 0 && !bound.isOver(), LOOK_MS, () -> { });
        return reads + others == 0;
    }
}
