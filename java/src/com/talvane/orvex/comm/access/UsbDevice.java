package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;
import com.talvane.orvex.comm.access.Connection.ReportFormat;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.stream.Collectors;

/**
 * A device of a list: what is known of it and, while it is open, its transfers.
 *
 * <p>Information, descriptors and endpoints are there without opening it. {@link #open} and {@link #close} may be used
 * again and again; what needs an open device throws {@link IllegalStateException} otherwise.
 *
 * <p>Transfers have these things in common:
 * <ul>
 * <li>They move bytes of an array from an offset on. Bounds are checked before anything moves
 *     ({@link IndexOutOfBoundsException}), and nothing outside them is changed. Until the transfer returns, no other
 *     thread changes the array.</li>
 * <li>Time-outs are in milliseconds, 1 or more; {@link #FOREVER} is for reads only. The time that a transfer waits for
 *     its turn is not counted: on an endpoint they run one after the other.</li>
 * <li>They return what moved, which may be less than was asked for. A transfer of which nothing moved is looked into:
 *     see the exceptions. {@link UsbException} itself is thrown when the cause cannot be told.</li>
 * <li>{@link IllegalArgumentException} is for endpoints and time-outs that cannot be, and
 *     {@link UnsupportedOperationException} for calls that the kind of device does not have; nothing moves then
 *     either.</li>
 * </ul>
 */
public final class UsbDevice implements AutoCloseable {
    /** The time-out of a read that waits until something comes, or the device is closed or gone. */
    public static final int FOREVER = Deadline.FOREVER;

    private static final int MOST_DESCRIPTOR_BYTES = 512;
    private static final int PACKET_SIZE_BITS = 0x7FF;
    private static final int LEAST_REPORT = 64;
    private static final int GREATEST_REPORT = 1024;
    private static final ReportFormat STANDARD_REPORTS = new ReportFormat(LEAST_REPORT, 0x5A);

    private final UsbSession session;
    private final UsbDeviceList list;
    private final int index;
    private volatile String line;
    private volatile UsbDeviceInfo info;
    private volatile Connection connection;

    UsbDevice(UsbSession session, UsbDeviceList list, int index, String line) {
        this.session = session;
        this.list = list;
        this.index = index;
        takeLine(line);
    }

    void takeLine(String now) {
        info = UsbDeviceInfo.parse(now);
        line = now;
    }

    // ---------------------------------------------------------------------------------------------- what is known

    /**
     * What the information line told at the latest look at the list.
     *
     * @return the fields of the line
     */
    public UsbDeviceInfo info() {
        return info;
    }

    /**
     * The information line itself.
     *
     * @return as the library gave it
     */
    public String line() {
        return line;
    }

    /**
     * The device's place in its list.
     *
     * @return 0 for the first
     */
    public int index() {
        return index;
    }

    /**
     * Whether it was there at the latest look at the list.
     *
     * @return true when it was
     */
    public boolean isPresent() {
        return info.present();
    }

    /**
     * Names it for people.
     *
     * @return the serial number without control characters, or the place in the list when there is none
     */
    public String label() {
        return info.label(index);
    }

    /**
     * A descriptor as it was read when the device was listed.
     *
     * @param type            1 device, 2 configuration with all that follows it, 3 text, 5 endpoint
     * @param descriptorIndex of a text: 1 manufacturer, 2 product, 3 serial number; of an endpoint its address; 0 for
     *                        others
     * @return its bytes, of a text one for each character; empty when the library has none
     * @throws IllegalArgumentException for any other type, text or address
     * @throws IllegalStateException    when the session is closed
     * @throws UsbException             when the library does not know the device any more
     */
    public byte[] descriptor(int type, int descriptorIndex) throws UsbException {
        switch (type) {
            case 1, 2 -> Setup.within("descriptor index", descriptorIndex, 0, 0);
            case 3 -> Setup.within("text", descriptorIndex, 1, 3);
            case 5 -> Setup.withinHex("endpoint", descriptorIndex, 0, 0xFF);
            default -> throw new IllegalArgumentException("no descriptor of type " + type + " is kept");
        }
        return session.locked(() -> {
            byte[] bytes = new byte[MOST_DESCRIPTOR_BYTES];
            int size = session.usb.usbGetDeviceDescriptor(
                    list(), index, type, descriptorIndex, bytes.length, bytes);
            return size == UsbAccessCode.NOT_AVAILABLE.code()
                    ? new byte[0]
                    : Arrays.copyOf(bytes, UsbException.check("descriptor of " + label(), size));
        });
    }

    /**
     * The endpoints of the device, or of the interface that it is.
     *
     * @return as many as there are
     * @throws IllegalStateException when the session is closed
     * @throws UsbException          when the library does not know the device any more
     */
    public List<UsbEndpoint> endpoints() throws UsbException {
        return session.locked(() -> {
            byte[] bytes = new byte[UsbEndpoint.MOST_BYTES];
            int count = session.usb.usbGetEndpointList(list(), index, bytes);
            return UsbEndpoint.parse(bytes, UsbException.check("endpoints of " + label(), count));
        });
    }

    // ---------------------------------------------------------------------------------------------- open and close

    /**
     * Opens the device; a HID device with reports of 64 bytes, the last of a write filled up with 0x5A.
     *
     * @return this device, for a try statement that closes it
     * @throws IllegalStateException  when it is open, or the session is closed
     * @throws UsbDeviceGoneException when it is absent
     * @throws UsbBusyException       when another program or a driver has it
     * @throws UsbException when it cannot be opened: no permission, a class that is not supported, it left just now, or
     *                      a transfer of an earlier opening has still not come back
     */
    public UsbDevice open() throws UsbException {
        return open(STANDARD_REPORTS);
    }

    /**
     * Opens a HID device with reports of another size. They keep it until the device is closed. What was not read
     * before an open with another size is garbled, and so may be reports that come in the very moment of it.
     *
     * @param reportSize the number of bytes in each report, 64 to 1024
     * @param fill       its low 8 bits fill up the last report of a write
     * @return this device, for a try statement that closes it
     * @throws IllegalArgumentException      when the size is out of range
     * @throws UnsupportedOperationException when it is not a HID device
     * @throws IllegalStateException         as {@link #open()}
     * @throws UsbException                  as {@link #open()}
     */
    public UsbDevice openReports(int reportSize, int fill) throws UsbException {
        Setup.within("report size", reportSize, LEAST_REPORT, GREATEST_REPORT);
        demandHid(true);
        return open(new ReportFormat(reportSize, fill));
    }

    private UsbDevice open(ReportFormat reports) throws UsbException {
        return session.locked(() -> {
            if (connection != null) {
                throw new IllegalStateException(label() + " is open already");
            }
            Connection opening = new Connection(session, this, reports, packetSizes());
            int result = session.gate.alone(null, opening::open);
            if (result == UsbAccessCode.NOT_AVAILABLE.code()
                    || (result == UsbAccessCode.OPEN_FAILED.code() && isAbsent())) {
                throw new UsbDeviceGoneException("open " + label(), UsbAccessCode.NOT_AVAILABLE);
            }
            UsbException.check("open " + label(), result);
            connection = opening;
            return this;
        });
    }

    private Map<Integer, Integer> packetSizes() throws UsbException {
        return endpoints().stream()
                .filter(endpoint -> (endpoint.packetSize() & PACKET_SIZE_BITS) > 0)
                .collect(Collectors.toMap(
                        e -> e.address() & 0xFF, e -> e.packetSize() & PACKET_SIZE_BITS, Math::max));
    }

    /**
     * Whether it is open.
     *
     * @return true between {@link #open} and {@link #close}, also when the device is gone
     */
    public boolean isOpen() {
        return connection != null;
    }

    /**
     * Closes the device. No transfer starts any more, and those of other threads are ended: they return what has
     * moved, or throw {@link IllegalStateException} when that is nothing. Closing again does nothing.
     *
     * <p>It waits for what cannot be cancelled: for writes and control requests on other devices until they end, at
     * most to their time-outs; for HID reads a tenth of a second; for a HID report until the system has taken it. When
     * its own transfers do not come back within 3 seconds, the device stays claimed, and {@link #open} tries again to
     * end them. The close of a HID device may take 20 seconds and more (see "HID devices" in
     * {@link com.talvane.orvex.comm.ORVEXCommUSBAccess}).
     */
    @Override
    public void close() {
        session.ifOpen(this::closeLocked);
    }

    /** Under the session lock. */
    void closeLocked() {
        Connection ending = connection;
        if (ending != null) {
            connection = null;
            ending.end();
            // Whatever it answers, the device counts as not open.
            session.gate.alone(ending, ending::close);
        }
    }

    /**
     * Resets the port of the device. Reads of other threads go on afterwards; it waits for its writes and control
     * requests.
     *
     * @throws IllegalStateException         when it is not open
     * @throws UnsupportedOperationException for a HID device
     * @throws UsbDeviceGoneException        when it is another device after the reset, or gone
     * @throws UsbException                  when the reset fails otherwise
     */
    public void reset() throws UsbException {
        demandHid(false);
        session.locked(() -> {
            int result = session.gate.alone(connection(), () -> session.usb.usbResetDevice(list(), index));
            boolean other = result == UsbAccessCode.NOT_FOUND.code() || result == UsbAccessCode.NO_DEVICE.code();
            if (other || result == UsbAccessCode.NOT_OPEN.code()) {
                throw new UsbDeviceGoneException("reset " + label(), UsbAccessCode.NO_DEVICE);
            }
            return UsbException.check("reset " + label(), result);
        });
    }

    // ---------------------------------------------------------------------------------------------- transfers

    /**
     * Reads from a bulk endpoint until the bytes are there or a packet comes that is not full. Ask for a multiple of
     * the packet size.
     *
     * @param endpoint its address, 0x81 to 0x8F
     * @param buffer   takes the bytes
     * @param offset   where in it
     * @param length   how many at most
     * @param timeout  in milliseconds, or {@link #FOREVER}
     * @return the number of bytes; 0 for an empty packet
     * @throws UsbTimeoutException    when the time ran out; what had come of the transfer is lost
     * @throws UsbStalledException    when the endpoint is halted
     * @throws UsbDeviceGoneException when the device was pulled
     * @throws UsbException           when the transfer failed otherwise
     */
    public int readBulk(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return pipes().read(session.usb::usbReadBulkPipe, endpoint, buffer, offset, length, timeout);
    }

    /**
     * Reads from an interrupt endpoint; apart from that as {@link #readBulk}.
     *
     * @param endpoint its address, 0x81 to 0x8F
     * @param buffer   takes the bytes
     * @param offset   where in it
     * @param length   how many at most
     * @param timeout  in milliseconds, or {@link #FOREVER}
     * @return the number of bytes; 0 for an empty packet
     * @throws UsbException as {@link #readBulk}
     */
    public int readInterrupt(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return pipes().read(session.usb::usbReadInterruptPipe, endpoint, buffer, offset, length, timeout);
    }

    /**
     * Writes to a bulk endpoint.
     *
     * @param endpoint its address, 0x01 to 0x0F
     * @param buffer   holds the bytes
     * @param offset   where in it
     * @param length   how many; 0 sends an empty packet
     * @param timeout  in milliseconds
     * @return the number of bytes that the device took
     * @throws UsbTimeoutException    when the time ran out; the device may have taken some bytes
     * @throws UsbStalledException    when the endpoint is halted
     * @throws UsbDeviceGoneException when the device was pulled
     * @throws UsbException           when the transfer failed otherwise
     */
    public int writeBulk(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return pipes().write(session.usb::usbWriteBulkPipe, endpoint, buffer, offset, length, timeout);
    }

    /**
     * Writes to an interrupt endpoint; apart from that as {@link #writeBulk}.
     *
     * @param endpoint its address, 0x01 to 0x0F
     * @param buffer   holds the bytes
     * @param offset   where in it
     * @param length   how many; 0 sends an empty packet
     * @param timeout  in milliseconds
     * @return the number of bytes that the device took
     * @throws UsbException as {@link #writeBulk}
     */
    public int writeInterrupt(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return pipes().write(session.usb::usbWriteInterruptPipe, endpoint, buffer, offset, length, timeout);
    }

    /**
     * Makes a control request that gets data from the device.
     *
     * @param requestType bmRequestType, with bit 0x80
     * @param request     bRequest
     * @param value       wValue
     * @param indexWord   wIndex
     * @param length      wLength: how many bytes at most, 0 to 65535
     * @param timeout     in milliseconds
     * @return the bytes that came; none also when the device refused, which cannot be told from having nothing to say
     * @throws UsbTimeoutException    when nothing came and the time ran out
     * @throws UsbDeviceGoneException when the device was pulled
     * @throws UsbException           when the request could not be sent otherwise
     */
    public byte[] readControl(int requestType, int request, int value, int indexWord, int length, int timeout)
            throws UsbException {
        Setup.within("length", length, 0, 0xFFFF);
        Setup.withinHex("request type", requestType, Connection.DIRECTION, 0xFF);
        byte[] bytes = Setup.bytes(requestType, request, value, indexWord, new byte[length]);
        int moved = pipes().control(bytes, timeout);
        return Arrays.copyOfRange(bytes, Connection.SETUP_BYTES, Connection.SETUP_BYTES + moved);
    }

    /**
     * Makes a control request that sends data to the device.
     *
     * @param requestType bmRequestType, without bit 0x80
     * @param request     bRequest
     * @param value       wValue
     * @param indexWord   wIndex
     * @param data        what is sent, up to 65535 bytes. Whether a request without data was taken is not told
     * @param timeout     in milliseconds
     * @return the number of bytes that the device took
     * @throws UsbTimeoutException    when the device took nothing and the time ran out
     * @throws UsbStalledException    when the device refused the data
     * @throws UsbDeviceGoneException when the device was pulled
     * @throws UsbException           when the request could not be sent otherwise
     */
    public int writeControl(int requestType, int request, int value, int indexWord, byte[] data, int timeout)
            throws UsbException {
        Setup.withinHex("request type", requestType, 0, Connection.DIRECTION - 1);
        return pipes().control(Setup.bytes(requestType, request, value, indexWord, data), timeout);
    }

    /**
     * Reads from a HID device: the bytes of as many input reports as that takes; what is left of the last one is
     * dropped. While it waits it keeps a processor core busy, and a wall clock that is set back makes it wait longer.
     *
     * @param buffer  takes the bytes
     * @param offset  where in it
     * @param length  how many
     * @param timeout in milliseconds, or {@link #FOREVER}
     * @return the number of bytes: {@code length}, or those of the reports that came in time
     * @throws UsbTimeoutException    when no report came in time
     * @throws UsbDeviceGoneException when no report came and the device was pulled
     * @throws UsbException           when the read failed otherwise
     */
    public int readReports(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return reports().readReports(buffer, offset, length, timeout);
    }

    /**
     * Writes to a HID device, in output reports of one size; the last one is filled up.
     *
     * @param buffer  holds the bytes
     * @param offset  where in it
     * @param length  how many; with 0 nothing is sent
     * @param timeout for each report, in milliseconds; the system does not look at it, see "HID devices" in
     *                {@link com.talvane.orvex.comm.ORVEXCommUSBAccess}
     * @return the number of bytes: {@code length}
     * @throws UsbDeviceGoneException when the device was pulled
     * @throws UsbException           when a report could not be sent; those before it were
     */
    public int writeReports(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return reports().writeReports(buffer, offset, length, timeout);
    }

    private Transfers pipes() {
        demandHid(false);
        return new Transfers(this, connection());
    }

    private Transfers reports() {
        demandHid(true);
        return new Transfers(this, connection());
    }

    private Connection connection() {
        Connection open = connection;
        if (open == null) {
            throw new IllegalStateException(label() + " is not open");
        }
        return open;
    }

    private void demandHid(boolean hid) {
        if (info.isHid() != hid) {
            throw new UnsupportedOperationException(
                    label() + (hid ? " is not a HID device" : " is a HID device: it has reports, not pipes"));
        }
    }

    /** Whether it is absent by now, as far as the system has told. */
    boolean isAbsent() {
        session.ifOpen(list::refresh);
        return !isPresent();
    }

    int list() {
        return list.handle();
    }
}
