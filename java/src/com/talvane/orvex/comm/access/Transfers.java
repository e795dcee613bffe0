package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.access.Connection.RawCall;
import java.util.Arrays;
import java.util.Objects;

/** The transfers of an open device: checks what was asked for, moves the bytes, and tells what became of it. */
record Transfers(Connection connection) {
    private static final int GREATEST_ENDPOINT = 0x0F;

    int read(RawCall call, int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        Setup.withinHex("endpoint", endpoint, Setup.IN + 1, Setup.IN + GREATEST_ENDPOINT);
        Setup.timeout(timeout);
        byte[] bytes = part(buffer, offset, length);
        int result = connection.read(call, endpoint, timeout, bytes);
        return giveBack(bytes, atEndpoint("read from", endpoint).ofRead(length, result), buffer, offset);
    }

    int write(RawCall call, int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        Setup.withinHex("endpoint", endpoint, 1, GREATEST_ENDPOINT);
        Setup.endingTimeout(timeout);
        byte[] bytes = part(buffer, offset, length);
        int result = connection.write(call, endpoint, timeout, bytes);
        return atEndpoint("write to", endpoint).ofWrite(length, result);
    }

    int control(byte[] setupAndData, int timeout) throws UsbException {
        Setup.endingTimeout(timeout);
        Deadline deadline = new Deadline(timeout);
        int result = connection.control(setupAndData, timeout);
        return of("control request to", 0).ofControl(setupAndData, result, deadline.isOver());
    }

    /** Returns the data that came for the request. */
    byte[] readControl(byte[] setupAndRoom, int timeout) throws UsbException {
        int moved = control(setupAndRoom, timeout);
        return Arrays.copyOfRange(setupAndRoom, Setup.PACKET_BYTES, Setup.PACKET_BYTES + moved);
    }

    int readReports(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        Setup.timeout(timeout);
        byte[] bytes = part(buffer, offset, length);
        int result = connection.readReports(timeout, bytes);
        return giveBack(bytes, of("read reports from", 0).ofReports(result), buffer, offset);
    }

    int writeReports(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        Setup.endingTimeout(timeout);
        return of("write reports to", 0).ofReports(connection.writeReports(timeout, part(buffer, offset, length)));
    }

    private Outcome atEndpoint(String action, int endpoint) {
        return of(String.format("%s endpoint 0x%02X of", action, endpoint), endpoint);
    }

    private Outcome of(String action, int endpoint) {
        return new Outcome(connection, action + " " + connection.target().label(), endpoint);
    }

    /** The raw calls move from the start of an array on, and copy all of it: a part gets an array of its own. */
    private static byte[] part(byte[] buffer, int offset, int length) {
        Objects.checkFromIndexSize(offset, length, buffer.length);
        return length == buffer.length ? buffer : Arrays.copyOfRange(buffer, offset, offset + length);
    }

    private static int giveBack(byte[] bytes, int moved, byte[] buffer, int offset) {
        if (bytes != buffer) {
            System.arraycopy(bytes, 0, buffer, offset, moved);
        }
        return moved;
    }
}
