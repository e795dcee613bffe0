package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import java.util.Arrays;
import java.util.function.IntSupplier;

/** An open device. Closing it closes the device. */
final class OpenDevice implements AutoCloseable {
    static final int SETUP_BYTES = 8;

    /** Bytes that were moved, and how long that took. */
    record Transfer(byte[] data, long nanos) {
        String took() {
            return String.format("%d bytes in %.3f ms", data.length, nanos / 1e6);
        }
    }

    /** The pipe calls all have these arguments after list and index. */
    @FunctionalInterface
    private interface PipeCall {
        int move(int list, int index, int endpoint, int length, int timeout, byte[] buffer);
    }

    private final ORVEXCommUSBAccess usb;
    private final int list;
    private final DeviceInfo info;

    OpenDevice(ORVEXCommUSBAccess usb, int list, DeviceInfo info) {
        this.usb = usb;
        this.list = list;
        this.info = info;
        UsbFailure.check("open " + info.label(), usb.usbOpenDevice(list, info.index()));
    }

    DeviceInfo info() {
        return info;
    }

    /** Writes all of the data; the result holds what the device took. */
    Transfer write(Pipe pipe, byte[] data) {
        return move("write to", pipe.interrupt() ? usb::usbWriteInterruptPipe : usb::usbWriteBulkPipe, pipe, data);
    }

    /** Reads up to size bytes. */
    Transfer read(Pipe pipe, int size) {
        return move("read from", pipe.interrupt() ? usb::usbReadInterruptPipe : usb::usbReadBulkPipe, pipe,
                new byte[size]);
    }

    /** Makes a control request: a setup packet with its data behind it. The result holds the data that moved. */
    Transfer control(byte[] buffer, int timeout) {
        boolean in = (buffer[0] & 0x80) != 0;
        return timed("control request to " + info.label(), buffer, SETUP_BYTES, () -> in
                ? usb.usbReadControlPipe(list, info.index(), 0, timeout, buffer)
                : usb.usbWriteControlPipe(list, info.index(), 0, timeout, buffer));
    }

    private Transfer move(String action, PipeCall call, Pipe pipe, byte[] buffer) {
        return timed(String.format("%s endpoint 0x%02X of %s", action, pipe.endpoint(), info.label()), buffer, 0,
                () -> call.move(list, info.index(), pipe.endpoint(), buffer.length, pipe.timeout(), buffer));
    }

    /** Makes a call that answers how many bytes moved; they stand in the buffer from an offset on. */
    private static Transfer timed(String action, byte[] buffer, int from, IntSupplier call) {
        long start = System.nanoTime();
        int moved = call.getAsInt();
        long nanos = System.nanoTime() - start;
        UsbFailure.check(action, moved);
        return new Transfer(Arrays.copyOfRange(buffer, from, from + moved), nanos);
    }

    @Override
    public void close() {
        usb.usbCloseDevice(list, info.index());
    }

    /** Where a transfer goes and how long it may take, in milliseconds. */
    record Pipe(int endpoint, boolean interrupt, int timeout) {
    }
}
