package com.talvane.orvex.comm.access;

import java.util.function.BooleanSupplier;

/** Waits that an interrupt does not end: the thread has it again afterwards. */
final class Waits {
    private Waits() {
    }

    /** Waits on a lock, which the thread has, while a condition holds that others change and notify of. */
    static void waitWhile(Object lock, BooleanSupplier condition) {
        waitWhile(lock, condition, 0, () -> { });
    }

    /**
     * The same, with something to do again and again.
     *
     * @param periodMs looks at the condition also when nobody notifies, after so many milliseconds; 0 for never
     * @param each     is done after each look at the condition that held, and the wait for the next
     */
    static void waitWhile(Object lock, BooleanSupplier condition, long periodMs, Runnable each) {
        boolean interrupted = false;
        while (condition.getAsBoolean()) {
            try {
                lock.wait(periodMs);
            } catch (InterruptedException e) {
                interrupted = true;
            }
            each.run();
        }
        if (interrupted) {
            Thread.currentThread().interrupt();
        }
    }
}
