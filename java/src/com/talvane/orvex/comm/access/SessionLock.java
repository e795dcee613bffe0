package com.talvane.orvex.comm.access;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.locks.ReentrantLock;

/**
 * The session lock, and what is put off until nobody who waits for it can be kept from it. The raw session belongs to
 * the process, and so does the lock.
 *
 * <p>Threads: any.
 */
final class SessionLock {
    private static final ReentrantLock LOCK = new ReentrantLock();
    /** Under the lock. */
    private static final List<Runnable> PUT_OFF = new ArrayList<>();

    private SessionLock() {
    }

    static void lock() {
        LOCK.lock();
    }

    static boolean tryLock() {
        return LOCK.tryLock();
    }

    /** Gives the lock back; when this thread had it once only, runs what was put off. */
    static void unlock() {
        List<Runnable> work = LOCK.getHoldCount() == 1 ? takePutOff() : List.of();
        LOCK.unlock();
        work.forEach(Runnable::run);
    }

    /** The same for a thread that has other locks, too: leaves what was put off to the next one that has none. */
    static void unlockOnly() {
        LOCK.unlock();
    }

    private static List<Runnable> takePutOff() {
        List<Runnable> work = PUT_OFF.isEmpty() ? List.of() : List.copyOf(PUT_OFF);
        PUT_OFF.clear();
        return work;
    }

    /** Runs {@code work} without the lock: at once, or when this thread has given it back. */
    static void afterwards(Runnable work) {
        if (LOCK.isHeldByCurrentThread()) {
            PUT_OFF.add(work);
        } else {
            work.run();
        }
    }
}
