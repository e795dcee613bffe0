package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import com.talvane.orvex.comm.UsbAccessCode;
import com.talvane.orvex.comm.access.Connection.RawCall;
import com.talvane.orvex.comm.access.Connection.ReportFormat;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Map;
import java.util.concurrent.Executor;
import java.util.function.BinaryOperator;
import java.util.function.Function;
import java.util.stream.Collectors;

/** A device in its place in a raw list: what is known of it, and its latest connection. */
final class ListedDevice implements UsbDevice {
    static final int ABSENT = 0;
    private static final int MOST_DESCRIPTOR_BYTES = 512;
    private static final int GREATEST_READ = 1 << 24;

    /**
     * A place in a raw list.
     *
     * @param list  the raw handle of the list
     * @param index the place in the list
     */
    record Place(int list, int index) {
    }

    private final RawSession session;
    private final int index;
    private final Runnable refresh;
    private volatile Place place;
    private volatile String line;
    private volatile UsbDeviceInfo info;
    private volatile UsbDoubt doubt = UsbDoubt.NONE;
    /** How often it has come; under the session lock, as the next. */
    private int arrivals;
    private int stay = ABSENT;
    /** Null before the first opening; has ended when the device was closed since. */
    private volatile Connection latest;

    /**
     * A device that is not open.
     *
     * @param session the session of the list
     * @param index   the place in the list as programs see it
     * @param refresh updates the list; run under the session lock
     * @param place   the place in a raw list
     * @param line    the information line
     */
    ListedDevice(RawSession session, int index, Runnable refresh, Place place, String line) {
        this.session = session;
        this.index = index;
        this.refresh = refresh;
        takeLine(place, line);
    }

    /** The device is in this place, and has this information line. */
    void takeLine(Place from, String now) {
        // A device that another list has found is not absent because it is in the first.
        if (line != null && !from.equals(place) && now.startsWith("0")) {
            return;
        }
        place = from;
        if (!now.equals(line)) {
            info = UsbDeviceInfo.parse(now);
            line = now;
        }
    }

    /** The device is absent, wherever it was. */
    void leave() {
        takeLine(place, "0" + line.substring(1));
    }

    /** Whether an information line tells of this device, present or absent. */
    boolean hasTextsOf(String other) {
        return line.substring(1).equals(other.substring(1));
    }

    Place place() {
        return place;
    }

    /** A look at the list is done: where the device is, and whether it is there at all, is settled. */
    void settle(UsbDoubt found) {
        doubt = found;
        if (!isPresent()) {
            stay = ABSENT;
        } else if (stay == ABSENT) {
            arrivals++;
            stay = arrivals;
        }
    }

    /** The number of its present stay from 1 on, as of the latest look, or {@link #ABSENT}. */
    int stay() {
        return stay;
    }

    @Override
    public UsbDoubt doubt() {
        return doubt;
    }

    @Override
    public UsbDeviceInfo info() {
        return info;
    }

    @Override
    public String line() {
        return line;
    }

    @Override
    public int index() {
        return index;
    }

    @Override
    public boolean isPresent() {
        return info.present();
    }

    @Override
    public String label() {
        return info.label(index);
    }

    @Override
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
                    place.list(), place.index(), type, descriptorIndex, bytes.length, bytes);
            return size == UsbAccessCode.NOT_AVAILABLE.code()
                    ? new byte[0]
                    : Arrays.copyOf(bytes, Result.check("descriptor of " + label(), size));
        });
    }

    @Override
    public List<UsbEndpoint> endpoints() throws UsbException {
        return session.locked(() -> {
            byte[] bytes = new byte[UsbEndpoint.MOST_BYTES];
            int count = session.usb.usbGetEndpointList(place.list(), place.index(), bytes);
            return UsbEndpoint.parse(bytes, Result.check("endpoints of " + label(), count));
        });
    }

    @Override
    public UsbDevice open() throws UsbException {
        return open(ReportFormat.ofVendor(info.vendorId()));
    }

    @Override
    public UsbDevice openReports(int reportSize, int fill) throws UsbException {
        ReportFormat reports = new ReportFormat(reportSize, fill);
        demandHid(true);
        return open(reports);
    }

    @Override
    public int reportSize() {
        demandHid(true);
        return isOpen() ? latest.reportSize() : ReportFormat.ofVendor(info.vendorId()).size();
    }

    private UsbDevice open(ReportFormat reports) throws UsbException {
        Observed.device("open", label(), () -> openObserved(reports));
        return this;
    }

    private int openObserved(ReportFormat reports) throws UsbException {
        return session.locked(() -> {
            if (isOpen()) {
                throw new IllegalStateException(label() + " is open already");
            }
            demandNoLateCalls();
            Connection opening = new Connection(session.usb, target(), reports, pipesByAddress());
            int result = opening.open();
            if (result == UsbAccessCode.NOT_AVAILABLE.code()
                    || (result == UsbAccessCode.OPEN_FAILED.code() && isAbsent())) {
                throw new UsbDeviceGoneException("open " + label(), UsbAccessCode.NOT_AVAILABLE, 0);
            }
            Result.check("open " + label(), result);
            latest = opening;
            return result;
        });
    }

    /** Tries again to end the raw calls of the opening before, which must not run on the next one. */
    private void demandNoLateCalls() throws UsbException {
        if (latest != null) {
            latest.close();
            if (latest.hasLateCalls()) {
                throw new UsbException("open " + label(), UsbAccessCode.OPEN_FAILED, 0);
            }
        }
    }

    Target target() {
        return new Target(place.list(), place.index(), info.isHid(), label(), this::isAbsent, this::seemsAbsent);
    }

    /** An endpoint that several settings of an interface have counts with its greatest packet. */
    private Map<Integer, UsbEndpoint> pipesByAddress() throws UsbException {
        return endpoints().stream()
                .filter(endpoint -> endpoint.packetBytes() > 0)
                .collect(Collectors.toMap(endpoint -> endpoint.address() & 0xFF, Function.identity(),
                        BinaryOperator.maxBy(Comparator.comparing(UsbEndpoint::packetBytes))));
    }

    @Override
    public boolean isOpen() {
        Connection known = latest;
        return known != null && !known.hasEnded();
    }

    @Override
    public void close() {
        session.ifOpen(this::closeLocked);
        awaitListeners();
    }

    /** Under the session lock. The device counts as not open afterwards, whatever the raw close returns. */
    void closeLocked() {
        if (isOpen()) {
            Connection ending = latest;
            ending.end();
            Observed.close(label(), ending::close);
        }
    }

    /** After a close, without the session lock: waits for the calls of listeners that are under way. */
    void awaitListeners() {
        Connection ended = latest;
        if (ended != null && ended.hasEnded()) {
            ended.listeners().awaitEnd();
        }
    }

    @Override
    public void reset() throws UsbException {
        demandHid(false);
        Observed.device("reset", label(), this::resetObserved);
    }

    private int resetObserved() throws UsbException {
        return session.locked(() -> {
            int result = connection().reset();
            boolean other = result == UsbAccessCode.NOT_FOUND.code() || result == UsbAccessCode.NO_DEVICE.code();
            if (other || result == UsbAccessCode.NOT_OPEN.code()) {
                throw new UsbDeviceGoneException("reset " + label(), UsbAccessCode.NO_DEVICE, 0);
            }
            return Result.check("reset " + label(), result);
        });
    }

    @Override
    public int readBulk(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return pipes().read(ORVEXCommUSBAccess::usbReadBulkPipe, endpoint, buffer, offset, length, timeout);
    }

    @Override
    public int readInterrupt(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return pipes().read(ORVEXCommUSBAccess::usbReadInterruptPipe, endpoint, buffer, offset, length, timeout);
    }

    @Override
    public int writeBulk(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return pipes().write(ORVEXCommUSBAccess::usbWriteBulkPipe, endpoint, buffer, offset, length, timeout);
    }

    @Override
    public int writeInterrupt(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return pipes().write(ORVEXCommUSBAccess::usbWriteInterruptPipe, endpoint, buffer, offset, length, timeout);
    }

    @Override
    public void readFully(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        pipes().readFully(endpoint, buffer, offset, length, timeout);
    }

    @Override
    public void writeFully(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException {
        pipes().writeFully(endpoint, buffer, offset, length, timeout);
    }

    @Override
    public byte[] readControl(int requestType, int request, int value, int indexWord, int length, int timeout)
            throws UsbException {
        byte[] bytes = Setup.forRead(requestType, request, value, indexWord, length);
        return pipes().readControl(bytes, timeout);
    }

    @Override
    public int writeControl(int requestType, int request, int value, int indexWord, byte[] data, int timeout)
            throws UsbException {
        byte[] bytes = Setup.forWrite(requestType, request, value, indexWord, data);
        return pipes().control(bytes, timeout);
    }

    @Override
    public int readReports(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return reports().readReports(buffer, offset, length, timeout);
    }

    @Override
    public int writeReports(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return reports().writeReports(buffer, offset, length, timeout);
    }

    @Override
    public UsbSubscription onReport(UsbInputListener listener) {
        return onReport(listener, session.threads);
    }

    @Override
    public UsbSubscription onReport(UsbInputListener listener, Executor executor) {
        Transfers transfers = reports();
        return listen(Setup.IN, transfers::nextReport, listener, executor);
    }

    @Override
    public UsbSubscription onData(int endpoint, int size, UsbInputListener listener) {
        return onData(endpoint, size, listener, session.threads);
    }

    @Override
    public UsbSubscription onData(int endpoint, int size, UsbInputListener listener, Executor executor) {
        Transfers.inEndpoint(endpoint);
        Setup.within("size", size, 1, GREATEST_READ);
        Transfers transfers = pipes();
        return listen(endpoint, () -> transfers.next(endpoint, size), listener, executor);
    }

    private UsbSubscription listen(int endpoint, InputPump.Read read, UsbInputListener listener, Executor executor) {
        return session.locked(() -> {
            InputPump pump = new InputPump(connection(), endpoint, read, listener, executor);
            session.threads.execute(pump.task());
            return pump;
        });
    }

    /** The transfers of an open device that is no HID device. */
    private Transfers pipes() {
        demandHid(false);
        return new Transfers(connection());
    }

    /** The transfers of an open HID device. */
    private Transfers reports() {
        demandHid(true);
        return new Transfers(connection());
    }

    /** The opening that lasts. */
    Connection connection() {
        if (!isOpen()) {
            throw new IllegalStateException(label() + " is not open");
        }
        return latest;
    }

    private void demandHid(boolean hid) {
        if (info.isHid() != hid) {
            throw new UnsupportedOperationException(
                    label() + (hid ? " is not a HID device" : " is a HID device: it has reports, not pipes"));
        }
    }

    private boolean isAbsent() {
        session.ifOpen(refresh);
        return !info.present();
    }

    /** The same without waiting for the session lock: as of the latest look while another thread has that. */
    private boolean seemsAbsent() {
        session.ifFree(refresh);
        return !info.present();
    }

    @Override
    public String toString() {
        return label() + (isPresent() ? "" : ", absent") + (isOpen() ? ", open" : "");
    }
}
