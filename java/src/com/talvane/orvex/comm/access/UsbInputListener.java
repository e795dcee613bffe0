package com.talvane.orvex.comm.access;

/**
 * Is called with what a device sends.
 *
 * <p>Threads: calls come one after another, on a thread of the session or of the executor that was given. An exception
 * goes to the log and to the handler of uncaught exceptions of that thread, and the next call comes nevertheless.
 */
@FunctionalInterface
public interface UsbInputListener {
    /**
     * Something came.
     *
     * @param bytes a HID report, or what one read of an endpoint got; an array of its own, which the listener may keep
     */
    void received(byte[] bytes);

    /**
     * Nothing comes any more, because the device was pulled or a read failed otherwise. This is the last call. It is
     * not made when the subscription, the device or the session was closed.
     *
     * @param cause the failure of the read
     */
    default void ended(UsbException cause) {
    }
}
