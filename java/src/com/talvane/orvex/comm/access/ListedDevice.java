package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;
import com.talvane.orvex.comm.access.Connection.ReportFormat;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.stream.Collectors;

/** A place in a raw list: what is known of the device there and, while it is open, its connection. */
final class ListedDevice {
    private static final int MOST_DESCRIPTOR_BYTES = 512;
    private static final int PACKET_SIZE_BITS = 0x7FF;

    private final RawSession session;
    private final int list;
    private final int index;
    private final Runnable refresh;
    private volatile String line;
    private volatile UsbDeviceInfo info;
    private volatile Connection connection;

    /**
     * A device that is not open.
     *
     * @param session the session of the list
     * @param list    the raw handle of the list
     * @param index   the place in the list
     * @param refresh updates the list; run under the session lock
     * @param line    the information line
     */
    ListedDevice(RawSession session, int list, int index, Runnable refresh, String line) {
        this.session = session;
        this.list = list;
        this.index = index;
        this.refresh = refresh;
        takeLine(line);
    }

    void takeLine(String now) {
        info = UsbDeviceInfo.parse(now);
        line = now;
    }

    UsbDeviceInfo info() {
        return info;
    }

    String line() {
        return line;
    }

    int index() {
        return index;
    }

    String label() {
        return info.label(index);
    }

    byte[] descriptor(int type, int descriptorIndex) throws UsbException {
        switch (type) {
            case 1, 2 -> Setup.within("descriptor index", descriptorIndex, 0, 0);
            case 3 -> Setup.within("text", descriptorIndex, 1, 3);
            case 5 -> Setup.withinHex("endpoint", descriptorIndex, 0, 0xFF);
            default -> throw new IllegalArgumentException("no descriptor of type " + type + " is kept");
        }
        return session.locked(() -> {
            byte[] bytes = new byte[MOST_DESCRIPTOR_BYTES];
            int size = session.usb.usbGetDeviceDescriptor(list, index, type, descriptorIndex, bytes.length, bytes);
            return size == UsbAccessCode.NOT_AVAILABLE.code()
                    ? new byte[0]
                    : Arrays.copyOf(bytes, Result.check("descriptor of " + label(), size));
        });
    }

    List<UsbEndpoint> endpoints() throws UsbException {
        return session.locked(() -> {
            byte[] bytes = new byte[UsbEndpoint.MOST_BYTES];
            int count = session.usb.usbGetEndpointList(list, index, bytes);
            return UsbEndpoint.parse(bytes, Result.check("endpoints of " + label(), count));
        });
    }

    void open(ReportFormat reports) throws UsbException {
        session.locked(() -> {
            if (connection != null) {
                throw new IllegalStateException(label() + " is open already");
            }
            Connection opening = new Connection(session, target(), reports, packetSizes());
            int result = session.gate.alone(null, opening::open);
            if (result == UsbAccessCode.NOT_AVAILABLE.code()
                    || (result == UsbAccessCode.OPEN_FAILED.code() && isAbsent())) {
                throw new UsbDeviceGoneException("open " + label(), UsbAccessCode.NOT_AVAILABLE);
            }
            Result.check("open " + label(), result);
            connection = opening;
            return opening;
        });
    }

    Target target() {
        return new Target(list, index, info.isHid(), label(), this::isAbsent);
    }

    private Map<Integer, Integer> packetSizes() throws UsbException {
        return endpoints().stream()
                .filter(endpoint -> (endpoint.packetSize() & PACKET_SIZE_BITS) > 0)
                .collect(Collectors.toMap(
                        e -> e.address() & 0xFF, e -> e.packetSize() & PACKET_SIZE_BITS, Math::max));
    }

    boolean isOpen() {
        return connection != null;
    }

    void close() {
        session.ifOpen(this::closeLocked);
    }

    /** Under the session lock. */
    void closeLocked() {
        Connection ending = connection;
        if (ending != null) {
            connection = null;
            ending.end();
            // The device counts as not open, whatever the close returns.
            session.gate.alone(ending, ending::close);
        }
    }

    void reset() throws UsbException {
        demandHid(false);
        session.locked(() -> {
            int result = session.gate.alone(connection(), () -> session.usb.usbResetDevice(list, index));
            boolean other = result == UsbAccessCode.NOT_FOUND.code() || result == UsbAccessCode.NO_DEVICE.code();
            if (other || result == UsbAccessCode.NOT_OPEN.code()) {
                throw new UsbDeviceGoneException("reset " + label(), UsbAccessCode.NO_DEVICE);
            }
            return Result.check("reset " + label(), result);
        });
    }

    /** The transfers of an open device that is no HID device. */
    Transfers pipes() {
        demandHid(false);
        return new Transfers(connection());
    }

    /** The transfers of an open HID device. */
    Transfers reports() {
        demandHid(true);
        return new Transfers(connection());
    }

    private Connection connection() {
        Connection open = connection;
        if (open == null) {
            throw new IllegalStateException(label() + " is not open");
        }
        return open;
    }

    void demandHid(boolean hid) {
        if (info.isHid() != hid) {
            throw new UnsupportedOperationException(
                    label() + (hid ? " is not a HID device" : " is a HID device: it has reports, not pipes"));
        }
    }

    private boolean isAbsent() {
        session.ifOpen(refresh);
        return !info.present();
    }
}
