package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import com.talvane.orvex.comm.access.Connection.Moved;
import com.talvane.orvex.comm.access.Connection.RawCall;
import java.util.Arrays;
import java.util.Objects;

/** The transfers of an open device: checks what was asked for, moves the bytes, and tells what became of it. */
record Transfers(Connection connection) {
    private static final String READ = "read from";
    private static final String WRITE = "write to";
    private static final String PIPE = "pipe";
    private static final String REPORTS = "reports";
    private static final int GREATEST_ENDPOINT = 0x0F;
    private static final int GREATEST_ARRAY = Integer.MAX_VALUE - 8;

    static void inEndpoint(int endpoint) {
        Setup.withinHex("endpoint", endpoint, Setup.IN + 1, Setup.IN + GREATEST_ENDPOINT);
    }

    private static void outEndpoint(int endpoint) {
        Setup.withinHex("endpoint", endpoint, 1, GREATEST_ENDPOINT);
    }

    int read(RawCall call, int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        inEndpoint(endpoint);
        Setup.timeout(timeout);
        Objects.checkFromIndexSize(offset, length, buffer.length);
        connection.demandUnclaimed(endpoint);
        return readClaimed(call, endpoint, buffer, offset, length, timeout);
    }

    /** For the listener of the endpoint, too. */
    private int readClaimed(RawCall call, int endpoint, byte[] buffer, int offset, int length, int timeout)
            throws UsbException {
        return Observed.transfer(PIPE, connection.target(), endpoint, length, () -> {
            byte[] bytes = room(endpoint, buffer, length);
            int result = connection.read(call, endpoint, timeout, bytes);
            giveBack(bytes, Math.min(result, length), buffer, offset);
            return of(READ, endpoint).ofRead(length, result);
        });
    }

    /** Whole packets, so that one that is longer than what was asked for shows; and only what came is given back. */
    private byte[] room(int endpoint, byte[] buffer, int length) {
        int whole = wholePackets(endpoint, length);
        return whole == buffer.length && whole == length ? buffer : new byte[whole];
    }

    private int wholePackets(int endpoint, int length) {
        UsbEndpoint pipe = connection.pipe(endpoint);
        long packet = pipe == null ? 1 : pipe.packetBytes();
        long whole = (length + packet - 1) / packet * packet;
        return (int) Math.max(Math.min(whole, GREATEST_ARRAY), length);
    }

    int write(RawCall call, int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        outEndpoint(endpoint);
        Setup.endingTimeout(timeout);
        byte[] bytes = part(buffer, offset, length);
        return Observed.transfer(PIPE, connection.target(), endpoint, length, () -> {
            int result = connection.write(call, endpoint, timeout, bytes);
            return of(WRITE, endpoint).ofWrite(length, result);
        });
    }

    /** Reads until all bytes are there. */
    void readFully(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        inEndpoint(endpoint);
        Setup.timeout(timeout);
        Objects.checkFromIndexSize(offset, length, buffer.length);
        RawCall call = readCall(endpoint);
        moveAll(of(READ, endpoint), length, timeout,
                (moved, left) -> read(call, endpoint, buffer, offset + moved, length - moved, left));
    }

    /** Writes until all bytes have gone. */
    void writeFully(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        outEndpoint(endpoint);
        Setup.endingTimeout(timeout);
        Objects.checkFromIndexSize(offset, length, buffer.length);
        RawCall call = isInterrupt(endpoint)
                ? ORVEXCommUSBAccess::usbWriteInterruptPipe : ORVEXCommUSBAccess::usbWriteBulkPipe;
        moveAll(of(WRITE, endpoint), length, timeout,
                (moved, left) -> write(call, endpoint, buffer, offset + moved, length - moved, left));
    }

    /** A transfer of what is left after some bytes have moved, in the time that is left. */
    @FunctionalInterface
    private interface Step {
        int move(int moved, int left) throws UsbException;
    }

    private static void moveAll(Outcome outcome, int length, int timeout, Step step) throws UsbException {
        Deadline deadline = new Deadline(timeout);
        int moved = 0;
        while (moved < length) {
            try {
                moved += step.move(moved, deadline.left());
            } catch (UsbException e) {
                throw e.after(moved);
            }
            if (moved < length && deadline.isOver()) {
                throw new UsbTimeoutException(outcome.attempted(), moved);
            }
        }
    }

    /** What the next read of an endpoint gets, whenever that comes; the size is rounded up to whole packets. */
    byte[] next(int endpoint, int size) throws UsbException {
        byte[] bytes = new byte[wholePackets(endpoint, size)];
        int length = readClaimed(readCall(endpoint), endpoint, bytes, 0, bytes.length, Deadline.FOREVER);
        return Arrays.copyOf(bytes, length);
    }

    private RawCall readCall(int endpoint) {
        return isInterrupt(endpoint)
                ? ORVEXCommUSBAccess::usbReadInterruptPipe : ORVEXCommUSBAccess::usbReadBulkPipe;
    }

    private boolean isInterrupt(int endpoint) {
        UsbEndpoint pipe = connection.pipe(endpoint);
        return pipe != null && pipe.isInterrupt();
    }

    int control(byte[] setupAndData, int timeout) throws UsbException {
        Setup.endingTimeout(timeout);
        int length = setupAndData.length - Setup.PACKET_BYTES;
        return Observed.transfer("control", connection.target(), setupAndData[0] & Setup.IN, length, () -> {
            Deadline deadline = new Deadline(timeout);
            int result = connection.control(setupAndData, timeout);
            return of("control request to", 0).ofControl(length, result, deadline.isOver());
        });
    }

    /** Returns the data that came for the request. */
    byte[] readControl(byte[] setupAndRoom, int timeout) throws UsbException {
        int moved = control(setupAndRoom, timeout);
        return Arrays.copyOfRange(setupAndRoom, Setup.PACKET_BYTES, Setup.PACKET_BYTES + moved);
    }

    int readReports(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        Setup.timeout(timeout);
        connection.demandUnclaimed(Setup.IN);
        return readClaimedReports(buffer, offset, length, timeout);
    }

    /** For the listener of the reports, too. */
    private int readClaimedReports(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        byte[] bytes = part(buffer, offset, length);
        return Observed.transfer(REPORTS, connection.target(), Setup.IN, length, () -> {
            Moved moved = connection.readReports(timeout, bytes);
            giveBack(bytes, moved.bytes(), buffer, offset);
            return of("read reports from", 0).ofReadReports(length, moved);
        });
    }

    /** The next report, whenever that comes. */
    byte[] nextReport() throws UsbException {
        byte[] report = new byte[connection.reportSize()];
        return Arrays.copyOf(report, readClaimedReports(report, 0, report.length, Deadline.FOREVER));
    }

    int writeReports(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        Setup.endingTimeout(timeout);
        byte[] bytes = part(buffer, offset, length);
        return Observed.transfer(REPORTS, connection.target(), 0, length, () -> {
            Moved moved = connection.writeReports(timeout, bytes);
            return of("write reports to", 0).ofWriteReports(length, moved);
        });
    }

    private Outcome of(String action, int endpoint) {
        return new Outcome(connection, action, endpoint);
    }

    /** The raw calls move from the start of an array on, and copy all of it: a part gets an array of its own. */
    private static byte[] part(byte[] buffer, int offset, int length) {
        Objects.checkFromIndexSize(offset, length, buffer.length);
        return length == buffer.length ? buffer : Arrays.copyOfRange(buffer, offset, offset + length);
    }

    private static void giveBack(byte[] bytes, int moved, byte[] buffer, int offset) {
        if (bytes != buffer) {
            System.arraycopy(bytes, 0, buffer, offset, Math.max(moved, 0));
        }
    }
}
