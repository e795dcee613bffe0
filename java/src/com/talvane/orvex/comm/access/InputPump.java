package com.talvane.orvex.comm.access;

import java.util.Objects;
import java.util.concurrent.Executor;

/** Reads from a device for a listener, on a thread of its own, until a read fails or the calls end. */
final class InputPump implements UsbSubscription {
    /** How many arrays may wait for the listener; a device with pipes is not read from while more would. */
    static final int MOST_WAITING = 16;

    /** The next read. It waits for ever. */
    @FunctionalInterface
    interface Read {
        byte[] next() throws UsbException;
    }

    private final Connection connection;
    private final int endpoint;
    private final Read read;
    private final UsbInputListener listener;
    private final ListenerCalls calls;
    private final InterruptibleTask task = new InterruptibleTask(this::pump);

    /**
     * A pump that does not run yet, but has the endpoint for itself.
     *
     * @param connection the open device
     * @param endpoint   what is read
     * @param read       reads it
     * @param listener   gets what was read
     * @param executor   calls the listener
     * @throws IllegalStateException when the endpoint has a listener
     */
    InputPump(Connection connection, int endpoint, Read read, UsbInputListener listener, Executor executor) {
        this.connection = connection;
        this.endpoint = endpoint;
        this.read = read;
        this.listener = Objects.requireNonNull(listener, "listener");
        calls = new ListenerCalls(executor, MOST_WAITING);
        connection.claim(endpoint, calls);
        connection.listeners().add(calls);
    }

    Runnable task() {
        return task;
    }

    private void pump() {
        try {
            byte[] bytes;
            do {
                bytes = read.next();
            } while (deliver(bytes));
        } catch (UsbInterruptedException | IllegalStateException e) {
            // The subscription or the device was closed.
        } catch (UsbException e) {
            calls.post(() -> listener.ended(e));
        } finally {
            connection.release(endpoint, calls);
        }
    }

    private boolean deliver(byte[] bytes) {
        return calls.post(() -> listener.received(bytes));
    }

    @Override
    public void close() {
        calls.end();
        task.interrupt();
        connection.release(endpoint, calls);
        calls.awaitEnd();
        connection.listeners().remove(calls);
    }

    @Override
    public String toString() {
        return String.format("listener to endpoint 0x%02X of %s", endpoint, connection.target().label());
    }
}
