package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import com.talvane.orvex.comm.UsbAccessCode;
import java.util.Arrays;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.ReentrantLock;
import java.util.function.IntSupplier;
import java.util.function.Supplier;

/**
 * One opening of a device, from open to close: its transfers, one at a time on each endpoint. Results are those of the
 * raw calls.
 */
final class Connection {
    private static final int CONTROL = 0;
    private static final byte[] NOTHING = {};
    private static final Moved NOTHING_MOVED = new Moved(0, 0);
    private static final int STATUS_MS = 1000;
    /** How often a read of reports looks whether the device is still there. */
    private static final long PRESENCE_NANOS = TimeUnit.MILLISECONDS.toNanos(100);
    private static final int LEAST_REPORT = 64;
    private static final int GREATEST_REPORT = 1024;

    private final ORVEXCommUSBAccess usb;
    private final Target target;
    private final ReportFormat reports;
    private final Map<Integer, UsbEndpoint> pipes;
    private final Map<Integer, ReentrantLock> turns = new ConcurrentHashMap<>();
    /** The endpoints that have a listener. */
    private final Map<Integer, ListenerCalls> claimed = new ConcurrentHashMap<>();
    private final Listeners listeners = new Listeners();
    /** Under the session lock. */
    private boolean hasLateCalls;
    private final ReportPauses pauses = new ReportPauses();
    private final RunningCalls calls = new RunningCalls();

    /** A raw call on bytes that it moves from or to their start. */
    @FunctionalInterface
    interface RawCall {
        int move(ORVEXCommUSBAccess usb, int list, int index, int endpoint, int length, int timeout, byte[] bytes);
    }

    /** Size and filling of a HID device's reports. */
    record ReportFormat(int size, int fill) {
        private static final ReportFormat STANDARD = new ReportFormat(LEAST_REPORT, 0x5A);
        private static final ReportFormat LARGE = new ReportFormat(512, 0);
        /** HID devices of this vendor have large reports. */
        private static final int LARGE_REPORT_VENDOR = 0x6A5D;

        ReportFormat {
            Setup.within("report size", size, LEAST_REPORT, GREATEST_REPORT);
        }

        /** What the devices of a vendor have. */
        static ReportFormat ofVendor(int vendorId) {
            return vendorId == LARGE_REPORT_VENDOR ? LARGE : STANDARD;
        }
    }

    /** A request for a status: whether it could be sent, whether an answer came, and its lowest bit. */
    record Status(boolean sent, boolean answered, boolean bit) {
    }

    /** What a call on reports moved, and the result of its last raw call: below 0 when that failed. */
    record Moved(int bytes, int result) {
    }

    /**
     * A connection that is not open yet.
     *
     * @param usb     makes the raw calls
     * @param target  the device
     * @param reports for a HID device
     * @param pipes   the endpoints by their addresses
     */
    Connection(ORVEXCommUSBAccess usb, Target target, ReportFormat reports, Map<Integer, UsbEndpoint> pipes) {
        this.usb = usb;
        this.target = target;
        this.reports = reports;
        this.pipes = pipes;
    }

    Target target() {
        return target;
    }

    /** The listeners to what this connection reads. */
    Listeners listeners() {
        return listeners;
    }

    /** The endpoint with this address, as the device was listed; null when it has none. */
    UsbEndpoint pipe(int endpoint) {
        return pipes.get(endpoint);
    }

    /** Has all reads of an endpoint go to one listener, from now on. */
    void claim(int endpoint, ListenerCalls listener) {
        if (claimed.putIfAbsent(endpoint, listener) != null) {
            throw new IllegalStateException(target.label() + " has a listener there already");
        }
    }

    /** Throws IllegalStateException when a listener has the reads of an endpoint. */
    void demandUnclaimed(int endpoint) {
        if (claimed.containsKey(endpoint)) {
            throw new IllegalStateException(target.label() + " has a listener there, which gets what comes");
        }
    }

    /** The end of a claim. Does nothing when the claim is another listener's by now. */
    void release(int endpoint, ListenerCalls listener) {
        claimed.remove(endpoint, listener);
    }

    int reportSize() {
        return reports.size();
    }

    /** The raw open. A HID device takes on the size of its reports at an opening, from the call before. */
    int open() {
        int result = openOnce();
        if (result == 0 && target.isHid()) {
            sendReport(1, NOTHING);
            close();
            result = openOnce();
            // It answers 0 also when the HID service refuses; a write tells.
            if (result == 0 && sendReport(1, NOTHING) < 0) {
                close();
                result = UsbAccessCode.OPEN_FAILED.code();
            }
        }
        return result;
    }

    private int openOnce() {
        return usb.usbOpenDevice(target.list(), target.index());
    }

    /** The raw close, which ends the transfers that run and waits some seconds for them. */
    int close() {
        int result = usb.usbCloseDevice(target.list(), target.index());
        hasLateCalls = !calls.awaitNone();
        return result;
    }

    /** Whether a transfer has not come back from the latest close. The device must not be opened before another one. */
    boolean hasLateCalls() {
        return hasLateCalls;
    }

    /** The raw reset. It cancels the reads that wait, and they are made again afterwards. */
    int reset() {
        return calls.reset(() -> turns.keySet().stream().filter(endpoint -> endpoint > Setup.IN).forEach(this::cancel),
                () -> usb.usbResetDevice(target.list(), target.index()));
    }

    /** From now on no transfer starts, and no listener is called. */
    void end() {
        calls.end();
        listeners.end();
    }

    boolean hasEnded() {
        return calls.hasEnded();
    }

    int write(RawCall call, int endpoint, int timeout, byte[] bytes) {
        return inTurn(endpoint, 0, () -> calls.make(() -> interruptibly(endpoint,
                () -> call.move(usb, target.list(), target.index(), endpoint, bytes.length, timeout, bytes))));
    }

    int control(byte[] setupAndData, int timeout) {
        return inTurn(CONTROL, 0, () -> calls.make(() -> interruptibly(CONTROL,
                () -> controlOnce(setupAndData, timeout))));
    }

    private int controlOnce(byte[] setupAndData, int timeout) {
        boolean in = (setupAndData[0] & Setup.IN) != 0;
        return in
                ? usb.usbReadControlPipe(target.list(), target.index(), 0, timeout, setupAndData)
                : usb.usbWriteControlPipe(target.list(), target.index(), 0, timeout, setupAndData);
    }

    int read(RawCall call, int endpoint, int timeout, byte[] bytes) {
        return inTurn(endpoint, 0, () -> {
            Deadline deadline = new Deadline(timeout);
            return calls.read(() -> interruptibly(endpoint, () -> call.move(
                    usb, target.list(), target.index(), endpoint, bytes.length, deadline.left(), bytes)));
        });
    }

    /** Whether a call of several raw calls makes no further one. */
    private boolean isToStop() {
        return hasEnded() || Thread.currentThread().isInterrupted();
    }

    /**
     * Reads reports one by one, so that none is lost when the time runs out after some of them. A raw read cannot be
     * cancelled, but one of a report at most loses nothing when its own time runs out.
     */
    Moved readReports(int timeout, byte[] bytes) {
        return inTurn(Setup.IN, NOTHING_MOVED, () -> {
            Deadline deadline = new Deadline(timeout);
            int place = 0;
            int result = 0;
            while (place < bytes.length && result >= 0 && !isToStop()) {
                byte[] report = new byte[Math.min(reports.size(), bytes.length - place)];
                result = awaitReport(deadline, report);
                System.arraycopy(report, 0, bytes, place, Math.max(result, 0));
                place += Math.max(result, 0);
            }
            return new Moved(place, result);
        });
    }

    /** Reads a report, or its start. Comes back without one when the time is over or the thread was interrupted. */
    private int awaitReport(Deadline deadline, byte[] report) {
        long lookedAt = System.nanoTime();
        int result = takeReport(report);
        while (result == UsbAccessCode.TIMED_OUT.code() && !deadline.isOver() && !isToStop()) {
            if (System.nanoTime() - lookedAt >= PRESENCE_NANOS) {
                lookedAt = System.nanoTime();
                if (target.seemsAbsent()) {
                    return result;
                }
            }
            pauses.sleep(deadline);
            result = takeReport(report);
        }
        return result;
    }

    /** The raw read of a report, or of its start. */
    private int takeReport(byte[] report) {
        return calls.make(() -> usb.usbReadInterruptPipeEx(target.list(), target.index(), 0,
                report.length, ReportPauses.LOOK_MS, report, reports.size(), 0));
    }

    /** Writes reports one by one, so that a close need not wait for all of them. */
    Moved writeReports(int timeout, byte[] bytes) {
        return inTurn(0, NOTHING_MOVED, () -> {
            int place = 0;
            int result = 1;
            while (place < bytes.length && result > 0 && !isToStop()) {
                byte[] report = Arrays.copyOfRange(bytes, place, Math.min(place + reports.size(), bytes.length));
                pauses.awaitAnswer();
                result = calls.make(() -> sendReport(timeout, report));
                place += Math.max(result, 0);
            }
            return new Moved(place, result);
        });
    }

    private int sendReport(int timeout, byte[] report) {
        return usb.usbWriteInterruptPipeEx(target.list(), target.index(), 0, report.length, timeout, report,
                reports.size(), reports.fill());
    }

    /**
     * What the device reports of itself (recipient 0) or of an endpoint (recipient 2). Asked about a transfer that
     * failed, and so also when the thread has been interrupted.
     */
    Status status(int recipient, int index) {
        byte[] request = Setup.bytes(Setup.IN | recipient, 0, 0, index, new byte[2]);
        int result = betweenRequests(() -> controlOnce(request, STATUS_MS));
        return new Status(result >= 0, result > 0, result > 0 && (request[Setup.PACKET_BYTES] & 1) != 0);
    }

    /** Makes raw control requests when no other one of this device runs, also on a thread that was interrupted. */
    int betweenRequests(IntSupplier requests) {
        ReentrantLock turn = turn(CONTROL);
        turn.lock();
        try {
            return calls.make(requests);
        } finally {
            turn.unlock();
        }
    }

    private boolean cancel(int endpoint) {
        return usb.usbCancelPipeTransfer(target.list(), target.index(), endpoint) == 0;
    }

    /** Makes a raw transfer that an interrupt of this thread cancels. */
    private int interruptibly(int endpoint, IntSupplier call) {
        return new CancelOnInterrupt(() -> cancel(endpoint)).run(call);
    }

    private ReentrantLock turn(int endpoint) {
        return turns.computeIfAbsent(endpoint, address -> new ReentrantLock());
    }

    /** Does the work when the endpoint is free. An interrupt ends the wait for that: then nothing moved. */
    private <T> T inTurn(int endpoint, T nothingMoved, Supplier<T> work) {
        ReentrantLock turn = turn(endpoint);
        try {
            turn.lockInterruptibly();
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            return nothingMoved;
        }
        try {
            return work.get();
        } finally {
            turn.unlock();
        }
    }
}
