package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import com.talvane.orvex.comm.UsbAccessCode;
import java.io.ByteArrayOutputStream;
import java.util.Arrays;
import java.util.function.IntSupplier;

/** An open device. Closing it closes the device. */
final class OpenDevice implements AutoCloseable {
    static final int SETUP_BYTES = 8;

    private static final String NOT_ACCEPTED = "not accepted";
    private static final String NO_DATA = "no data";

    /** The library ignores the endpoint of a HID device, which has one stream in each direction. */
    private static final int HID_ENDPOINT = 0;

    /** The bytes that were moved, and the duration of the transfer. */
    record Transfer(byte[] data, long nanos) {
        String took() {
            return Text.took(data.length, nanos);
        }
    }

    /** The arguments that all pipe calls have. */
    @FunctionalInterface
    private interface PipeCall {
        int move(int list, int index, int endpoint, int length, int timeout, byte[] buffer);
    }

    /** The arguments of the calls with a packet size. */
    @FunctionalInterface
    private interface PacketCall {
        int move(int list, int index, int endpoint, int length, int timeout, byte[] buffer, int packetSize, int fill);
    }

    private final ORVEXCommUSBAccess usb;
    private final int list;
    private final DeviceInfo info;

    OpenDevice(ORVEXCommUSBAccess usb, int list, DeviceInfo info) {
        this.usb = usb;
        this.list = list;
        this.info = info;
        open();
    }

    private void open() {
        UsbFailure.check("open " + info.label(), usb.usbOpenDevice(list, info.index()));
    }

    DeviceInfo info() {
        return info;
    }

    /** Writes data; the result holds the bytes that the device accepted. */
    Transfer write(Pipe pipe, byte[] data) {
        return move(pipe.name("write to"), NOT_ACCEPTED,
                pipe.interrupt() ? usb::usbWriteInterruptPipe : usb::usbWriteBulkPipe,
                pipe.endpoint(), pipe.timeout(), data);
    }

    /** Reads up to size bytes. */
    Transfer read(Pipe pipe, int size) {
        return move(pipe.name("read from"), NO_DATA,
                pipe.interrupt() ? usb::usbReadInterruptPipe : usb::usbReadBulkPipe,
                pipe.endpoint(), pipe.timeout(), new byte[size]);
    }

    /** Reads until size bytes have come, in several transfers if necessary; stops when a transfer moves none. */
    Transfer readAll(Pipe pipe, int size) {
        ByteArrayOutputStream data = new ByteArrayOutputStream(size);
        long nanos = 0;
        Transfer piece;
        do {
            piece = read(pipe, size - data.size());
            data.writeBytes(piece.data());
            nanos += piece.nanos();
        } while (piece.data().length > 0 && data.size() < size);
        return new Transfer(data.toByteArray(), nanos);
    }

    void reset() {
        UsbFailure.check("reset " + info.label(), usb.usbResetDevice(list, info.index()));
    }

    void resetEndpoint(int endpoint) {
        UsbFailure.check(String.format("reset endpoint 0x%02X of %s", endpoint, info.label()),
                usb.usbResetPipe(list, info.index(), endpoint));
    }

    /** Sets the size of a HID device's input reports. The library applies it when it opens the device. */
    void prepare(Reports reports) {
        if (reports.packetSize() != null) {
            write(reports, new byte[0]);
            close();
            open();
        }
    }

    /** Sends all of the data to a HID device, as output reports. */
    Transfer write(Reports reports, byte[] data) {
        return move("write reports to", NOT_ACCEPTED,
                reports.call(usb::usbWriteInterruptPipe, usb::usbWriteInterruptPipeEx),
                HID_ENDPOINT, reports.timeout(), data);
    }

    /** Reads exactly size bytes of a HID device's input reports. */
    Transfer read(Reports reports, int size) {
        return move("read reports from", NO_DATA,
                reports.call(usb::usbReadInterruptPipe, usb::usbReadInterruptPipeEx),
                HID_ENDPOINT, reports.timeout(), new byte[size]);
    }

    /** Makes a control request: a setup packet followed by its data. The result holds the data that moved. */
    Transfer control(byte[] buffer, int timeout) {
        boolean in = (buffer[0] & 0x80) != 0;
        return timed("control request to " + info.label(), buffer, SETUP_BYTES, () -> in
                ? usb.usbReadControlPipe(list, info.index(), 0, timeout, buffer)
                : usb.usbWriteControlPipe(list, info.index(), 0, timeout, buffer));
    }

    private Transfer move(String action, String late, PipeCall call, int endpoint, int timeout, byte[] buffer) {
        String attempted = action + " " + info.label();
        return timed(attempted, buffer, 0, () -> {
            int moved = call.move(list, info.index(), endpoint, buffer.length, timeout, buffer);
            if (moved == UsbAccessCode.TIMED_OUT.code()) {
                throw new UsbFailure(String.format("%s: %s within %d ms (%d; --timeout changes this)", attempted, late,
                        timeout, moved));
            }
            return moved;
        });
    }

    /** Makes a call that returns the number of bytes moved; the bytes are in the buffer, from an offset on. */
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

    /** The endpoint of a transfer, its kind, and its time-out in milliseconds. */
    record Pipe(int endpoint, boolean interrupt, int timeout) {
        private String name(String action) {
            return String.format("%s endpoint 0x%02X of", action, endpoint);
        }
    }

    /**
     * Size and padding of a HID device's reports (size null: the library's default), and the time-out in milliseconds.
     */
    record Reports(Integer packetSize, int fill, int timeout) {
        static Reports standard(int timeout) {
            return new Reports(null, 0, timeout);
        }

        private PipeCall call(PipeCall plain, PacketCall sized) {
            return packetSize == null
                    ? plain
                    : (list, index, endpoint, length, timeout, buffer) ->
                            sized.move(list, index, endpoint, length, timeout, buffer, packetSize, fill);
        }
    }
}
