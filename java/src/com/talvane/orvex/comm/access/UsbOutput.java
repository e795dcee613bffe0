package com.talvane.orvex.comm.access;

import java.io.IOException;
import java.io.OutputStream;
import java.nio.ByteBuffer;
import java.nio.channels.ClosedChannelException;
import java.nio.channels.WritableByteChannel;

/**
 * An OUT endpoint of an open device, as a stream and as a channel.
 *
 * <ul>
 * <li><b>Time-outs</b>: a write that the device does not take within the time-out throws {@link UsbTimeoutException};
 *     {@link UsbException#moved} tells how much it took at least.</li>
 * <li><b>Ends of messages</b>: each write is sent at once, as packets of which the last one may not be full; that ends
 *     a message. A write of full packets alone does not: {@link #endMessage} does.</li>
 * <li><b>Failures</b> are those of {@link UsbDevice#writeFully}.</li>
 * </ul>
 *
 * <p>Nothing is collected: put a {@link java.io.BufferedOutputStream} before it for many small writes; its flushes are
 * the ends of the messages then.
 *
 * <p>Threads: writes of several threads take place one after another. {@link #close} may be called meanwhile; it does
 * not end a write.
 */
public final class UsbOutput extends OutputStream implements WritableByteChannel {
    private final StreamEnd pipe;
    private boolean isMessageOpen;

    /**
     * Nothing is written yet.
     *
     * @param device   the device
     * @param endpoint its address, 0x01 to 0x0F
     * @param timeout  of each write, in milliseconds
     * @throws IllegalArgumentException when the device has no such endpoint, or the time-out cannot be
     * @throws IllegalStateException    when the session is closed
     * @throws UsbException             when the library does not know the device any more
     */
    public UsbOutput(UsbDevice device, int endpoint, int timeout) throws UsbException {
        Setup.endingTimeout(timeout);
        pipe = new StreamEnd(Pipe.of(device, endpoint, false), timeout);
    }

    @Override
    public void write(int octet) throws IOException {
        write(new byte[] {(byte) octet}, 0, 1);
    }

    @Override
    public synchronized void write(byte[] bytes, int offset, int length) throws IOException {
        pipe.writeFully(bytes, offset, length);
        isMessageOpen = length == 0 ? isMessageOpen : length % pipe.packet() == 0;
    }

    /** Writes what remains in the buffer; when that fails, the position tells how much of it has moved. */
    @Override
    public synchronized int write(ByteBuffer source) throws IOException {
        int start = source.position();
        byte[] bytes = new byte[source.remaining()];
        source.get(bytes);
        try {
            write(bytes, 0, bytes.length);
        } catch (UsbException e) {
            source.position(start + e.moved());
            throw e;
        }
        return bytes.length;
    }

    /**
     * Sends an empty packet when the last one was full: the device takes the message to be complete then.
     *
     * @throws IOException as a write
     */
    public synchronized void endMessage() throws IOException {
        pipe.demandOpen();
        if (isMessageOpen) {
            pipe.writeNothing();
            isMessageOpen = false;
        }
    }

    @Override
    public boolean isOpen() {
        return pipe.isOpen();
    }

    /** Ends the stream: writes throw {@link ClosedChannelException} then. Sends nothing, and leaves the device open. */
    @Override
    public void close() {
        pipe.close();
    }

    @Override
    public String toString() {
        return "output to " + pipe;
    }
}
