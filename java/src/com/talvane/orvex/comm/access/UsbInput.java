package com.talvane.orvex.comm.access;

import java.io.IOException;
import java.io.InputStream;
import java.nio.ByteBuffer;
import java.nio.channels.ClosedChannelException;
import java.nio.channels.ReadableByteChannel;
import java.util.Objects;

/**
 * What an IN endpoint of an open device sends, as a stream and as a channel.
 *
 * <ul>
 * <li><b>Time-outs</b>: a read that gets nothing within the time-out throws {@link UsbTimeoutException}. The next read
 *     goes on where it was.</li>
 * <li><b>Ends of messages</b>: a read gets bytes of one message, up to a packet that is not full. As a stream it tells
 *     no more of that: an empty packet is passed over, and the stream never ends. As a channel it returns 0 for an
 *     empty packet, and never -1 either.</li>
 * <li><b>Failures</b> are those of {@link UsbDevice#readBulk}: there is no other end than the {@link
 *     UsbDeviceGoneException} of a device that was pulled.</li>
 * </ul>
 *
 * <p>Reads of a packet and more go straight to the array that is given, as fast as the device's own methods. What is
 * left of a packet after a shorter read is kept for the next one, so nobody else should read from the endpoint.
 *
 * <p>Threads: reads of several threads take place one after another. {@link #close} may be called meanwhile; it does
 * not end a read.
 */
public final class UsbInput extends InputStream implements ReadableByteChannel {
    /** More than the greatest packet has. */
    private static final int BUFFER_BYTES = 16_384;

    private final StreamEnd pipe;
    private final byte[] buffer;
    private int start;
    private int end;

    /**
     * Nothing is read yet.
     *
     * @param device   the device
     * @param endpoint its address, 0x81 to 0x8F
     * @param timeout  of each read, in milliseconds, or {@link UsbDevice#FOREVER}
     * @throws IllegalArgumentException when the device has no such endpoint, or the time-out cannot be
     * @throws IllegalStateException    when the session is closed
     * @throws UsbException             when the library does not know the device any more
     */
    public UsbInput(UsbDevice device, int endpoint, int timeout) throws UsbException {
        Setup.timeout(timeout);
        pipe = new StreamEnd(Pipe.of(device, endpoint, true), timeout);
        buffer = new byte[BUFFER_BYTES / pipe.packet() * pipe.packet()];
    }

    @Override
    public synchronized int read() throws IOException {
        while (start == end) {
            fill();
        }
        return buffer[start++] & 0xFF;
    }

    @Override
    public synchronized int read(byte[] bytes, int offset, int length) throws IOException {
        Objects.checkFromIndexSize(offset, length, bytes.length);
        int read = 0;
        while (read == 0 && length > 0) {
            read = readOnce(bytes, offset, length);
        }
        return read;
    }

    @Override
    public synchronized int read(ByteBuffer target) throws IOException {
        int room = target.remaining();
        if (room == 0) {
            return 0;
        }
        if (target.hasArray()) {
            int read = readOnce(target.array(), target.arrayOffset() + target.position(), room);
            target.position(target.position() + read);
            return read;
        }
        byte[] bytes = new byte[room];
        int read = readOnce(bytes, 0, room);
        target.put(bytes, 0, read);
        return read;
    }

    /** Gets what is kept, or makes one read; 0 for an empty packet. */
    private int readOnce(byte[] bytes, int offset, int length) throws IOException {
        if (start == end && length >= pipe.packet()) {
            return pipe.read(bytes, offset, length - length % pipe.packet());
        }
        if (start == end) {
            fill();
        }
        int read = Math.min(length, end - start);
        System.arraycopy(buffer, start, bytes, offset, read);
        start += read;
        return read;
    }

    private void fill() throws IOException {
        start = 0;
        end = 0;
        end = pipe.read(buffer, 0, buffer.length);
    }

    /**
     * Tells how much can be read without waiting.
     *
     * @return the number of bytes that are kept
     */
    @Override
    public synchronized int available() {
        return end - start;
    }

    @Override
    public boolean isOpen() {
        return pipe.isOpen();
    }

    /**
     * Ends the stream: what is kept is read, and then {@link ClosedChannelException} is thrown. Leaves the device open.
     */
    @Override
    public void close() {
        pipe.close();
    }

    @Override
    public String toString() {
        return "input from " + pipe;
    }
}
