package com.talvane.orvex.comm.access;

/**
 * A listener that is called, until this is closed. It is also closed with what it listens to: the device or the
 * session.
 *
 * <p>Threads: any, at any time.
 */
public interface UsbSubscription extends AutoCloseable {
    /**
     * Ends the calls of the listener. None begins afterwards; a call that is under way on another thread is waited for,
     * unless that thread itself waits in a close. What was to be told and has not been yet is dropped. Closing again
     * does nothing. A listener may close its own subscription.
     */
    @Override
    void close();
}
