package com.talvane.orvex.comm.access;

import java.util.Arrays;
import java.util.Objects;
import java.util.concurrent.Callable;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.Executor;
import java.util.concurrent.Executors;

/**
 * Transfers of an open device that nobody waits for: each runs on a thread of an executor and completes a future, with
 * what the method of {@link UsbDevice} returns or throws.
 *
 * <p>Cancelling the future cancels the transfer: it interrupts the thread that makes it. What had moved by then is
 * lost. A future that is completed otherwise, as by {@link CompletableFuture#orTimeout}, leaves the transfer alone.
 *
 * <p>A transfer takes its thread for as long as it waits. Give an executor with as many threads as there are transfers
 * at a time, and no virtual threads: a transfer waits in native code and would keep a carrier thread of theirs from all
 * others. Without an executor there is a platform thread for each, which does not keep the program alive.
 *
 * <p>Transfers on one endpoint take place one after another, in no certain order: where the order matters, begin one
 * when the one before it is complete ({@link CompletableFuture#thenCompose}).
 *
 * <p>Threads: any, at any time.
 */
public final class UsbAsync {
    private static final Executor THREADS = Executors.newCachedThreadPool(work -> {
        Thread thread = new Thread(work, "orvex-usb-transfer");
        thread.setDaemon(true);
        return thread;
    });

    private final UsbDevice device;
    private final Executor executor;

    /** A transfer as a future. */
    private static final class Transfer<T> extends CompletableFuture<T> {
        private final InterruptibleTask task;

        Transfer(Callable<T> call) {
            task = new InterruptibleTask(() -> {
                try {
                    complete(call.call());
                } catch (Throwable e) {
                    completeExceptionally(e);
                }
            });
        }

        @Override
        public boolean cancel(boolean mayInterrupt) {
            boolean cancelled = super.cancel(mayInterrupt);
            if (cancelled) {
                task.interrupt();
            }
            return cancelled;
        }
    }

    /**
     * Makes the transfers on threads of their own.
     *
     * @param device the device
     */
    public UsbAsync(UsbDevice device) {
        this(device, THREADS);
    }

    /**
     * Makes the transfers on threads of an executor.
     *
     * @param device   the device
     * @param executor runs each transfer as a task
     */
    public UsbAsync(UsbDevice device, Executor executor) {
        this.device = Objects.requireNonNull(device, "device");
        this.executor = Objects.requireNonNull(executor, "executor");
    }

    /**
     * Reads once from a bulk or interrupt endpoint, as {@link UsbDevice#readBulk} does.
     *
     * @param endpoint its address, 0x81 to 0x8F
     * @param length   how many bytes at most; ask for a multiple of the packet size
     * @param timeout  in milliseconds, or {@link UsbDevice#FOREVER}
     * @return the bytes that came
     */
    public CompletableFuture<byte[]> readAsync(int endpoint, int length, int timeout) {
        return begin(() -> {
            byte[] bytes = new byte[length];
            return Arrays.copyOf(bytes, Pipe.of(device, endpoint, true).read(bytes, 0, length, timeout));
        });
    }

    /**
     * Writes to a bulk or interrupt endpoint, as {@link UsbDevice#writeBulk} does.
     *
     * @param endpoint its address, 0x01 to 0x0F
     * @param bytes    all of them are written; copied before this method returns
     * @param timeout  in milliseconds
     * @return the number of bytes that the device took
     */
    public CompletableFuture<Integer> writeAsync(int endpoint, byte[] bytes, int timeout) {
        byte[] copy = bytes.clone();
        return begin(() -> Pipe.of(device, endpoint, false).write(copy, 0, copy.length, timeout));
    }

    /**
     * Makes a control request that gets data from the device, as {@link UsbDevice#readControl} does.
     *
     * @param requestType bmRequestType, with bit 0x80
     * @param request     bRequest
     * @param value       wValue
     * @param indexWord   wIndex
     * @param length      wLength: how many bytes at most, 0 to 65535
     * @param timeout     in milliseconds
     * @return the bytes that came
     */
    public CompletableFuture<byte[]> controlAsync(
            int requestType, int request, int value, int indexWord, int length, int timeout) {
        return begin(() -> device.readControl(requestType, request, value, indexWord, length, timeout));
    }

    /**
     * Makes a control request that sends data to the device, as {@link UsbDevice#writeControl} does.
     *
     * @param requestType bmRequestType, without bit 0x80
     * @param request     bRequest
     * @param value       wValue
     * @param indexWord   wIndex
     * @param data        what is sent, up to 65535 bytes; copied before this method returns
     * @param timeout     in milliseconds
     * @return the number of bytes that the device took
     */
    public CompletableFuture<Integer> controlAsync(
            int requestType, int request, int value, int indexWord, byte[] data, int timeout) {
        byte[] copy = data.clone();
        return begin(() -> device.writeControl(requestType, request, value, indexWord, copy, timeout));
    }

    private <T> CompletableFuture<T> begin(Callable<T> call) {
        Transfer<T> transfer = new Transfer<>(call);
        executor.execute(transfer.task);
        return transfer;
    }

    @Override
    public String toString() {
        return "transfers of " + device.label();
    }
}
