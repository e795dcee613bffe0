package com.talvane.orvex.comm.access;

import java.nio.channels.ClosedChannelException;

/** A pipe as a stream or channel has it: with one time-out for its transfers, until the stream is closed. */
final class StreamEnd {
    private static final byte[] NOTHING = {};

    private final Pipe pipe;
    private final int timeout;
    private volatile boolean closed;

    /** The time-out is in milliseconds. */
    StreamEnd(Pipe pipe, int timeout) {
        this.pipe = pipe;
        this.timeout = timeout;
    }

    /** The number of bytes in a full packet, 1 at least. */
    int packet() {
        return pipe.packet();
    }

    int read(byte[] buffer, int offset, int length) throws ClosedChannelException, UsbException {
        demandOpen();
        return pipe.read(buffer, offset, length, timeout);
    }

    /** Writes an empty packet, whether the stream is open or not. */
    void writeNothing() throws UsbException {
        pipe.write(NOTHING, 0, 0, timeout);
    }

    void writeFully(byte[] buffer, int offset, int length) throws ClosedChannelException, UsbException {
        demandOpen();
        pipe.writeFully(buffer, offset, length, timeout);
    }

    void demandOpen() throws ClosedChannelException {
        if (closed) {
            throw new ClosedChannelException();
        }
    }

    boolean isOpen() {
        return !closed;
    }

    void close() {
        closed = true;
    }

    @Override
    public String toString() {
        return pipe.toString();
    }
}
