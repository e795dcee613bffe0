package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import com.talvane.orvex.comm.UsbAccessCode;
import java.util.Arrays;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.ReentrantLock;
import java.util.function.IntSupplier;

/**
 * One opening of a device, from open to close: its transfers, one at a time on each endpoint. Results are those of the
 * raw calls.
 */
final class Connection implements TransferGate.Owner {
    private static final int CONTROL = 0;
    private static final byte[] NOTHING = {};
    private static final int STATUS_MS = 1000;
    /** How often a read of reports looks whether the device is still there. */
    private static final long PRESENCE_NANOS = TimeUnit.MILLISECONDS.toNanos(100);
    private static final int LEAST_REPORT = 64;
    private static final int GREATEST_REPORT = 1024;

    private final ORVEXCommUSBAccess usb;
    private final TransferGate gate;
    private final Target target;
    private final ReportFormat reports;
    private final Map<Integer, Integer> packetSizes;
    private final Map<Integer, ReentrantLock> endpoints = new ConcurrentHashMap<>();
    private final ReportPauses pauses = new ReportPauses();
    private volatile boolean ended;

    /** A raw call on bytes that it moves from or to their start. */
    @FunctionalInterface
    interface RawCall {
        int move(ORVEXCommUSBAccess usb, int list, int index, int endpoint, int length, int timeout, byte[] bytes);
    }

    /** Size and filling of a HID device's reports. */
    record ReportFormat(int size, int fill) {
        static final ReportFormat STANDARD = new ReportFormat(LEAST_REPORT, 0x5A);

        ReportFormat {
            Setup.within("report size", size, LEAST_REPORT, GREATEST_REPORT);
        }
    }

    /** A request for a status: whether it could be sent, whether an answer came, and its lowest bit. */
    record Status(boolean sent, boolean answered, boolean bit) {
    }

    Connection(RawSession session, Target target, ReportFormat reports, Map<Integer, Integer> packetSizes) {
        this.usb = session.usb;
        this.gate = session.gate;
        this.target = target;
        this.reports = reports;
        this.packetSizes = packetSizes;
    }

    Target target() {
        return target;
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

    /** The raw close. */
    int close() {
        return usb.usbCloseDevice(target.list(), target.index());
    }

    /** From now on no transfer starts, and the gate may cancel those that run. */
    void end() {
        ended = true;
    }

    @Override
    public boolean hasEnded() {
        return ended;
    }

    // A write or control request that is cancelled cannot be taken up again, so only a close does that to it.

    int write(RawCall call, int endpoint, int timeout, byte[] bytes) {
        return inTurn(endpoint, () -> gate.pass(transfer(endpoint, false),
                () -> call.move(usb, target.list(), target.index(), endpoint, bytes.length, timeout, bytes)));
    }

    int control(byte[] setupAndData, int timeout) {
        boolean in = (setupAndData[0] & Setup.IN) != 0;
        return inTurn(CONTROL, () -> gate.pass(transfer(CONTROL, false), () -> in
                ? usb.usbReadControlPipe(target.list(), target.index(), 0, timeout, setupAndData)
                : usb.usbWriteControlPipe(target.list(), target.index(), 0, timeout, setupAndData)));
    }

    /** Reads, and goes on after having been cancelled for the sake of an open or close elsewhere. */
    int read(RawCall call, int endpoint, int timeout, byte[] bytes) {
        return inTurn(endpoint, () -> {
            Deadline deadline = new Deadline(timeout);
            int moved = 0;
            while (true) {
                byte[] rest = moved == 0 ? bytes : new byte[bytes.length - moved];
                TransferGate.Transfer transfer = transfer(endpoint, true);
                int result = gate.pass(transfer, () -> call.move(
                        usb, target.list(), target.index(), endpoint, rest.length, deadline.left(), rest));
                if (result < 0) {
                    return moved > 0 ? moved : result;
                }
                System.arraycopy(rest, 0, bytes, moved, rest == bytes ? 0 : result);
                moved += result;
                if (!transfer.wasCancelled() || ended || moved == bytes.length || endsMessage(endpoint, result)) {
                    return moved;
                }
                if (deadline.isOver()) {
                    return moved > 0 ? moved : UsbAccessCode.TIMED_OUT.code();
                }
            }
        });
    }

    /** Whether a read that was cancelled had ended by itself, with a packet that was not full. */
    private boolean endsMessage(int endpoint, int bytes) {
        return bytes % packetSizes.getOrDefault(endpoint, Integer.MAX_VALUE) != 0;
    }

    /**
     * Reads reports one by one, so that none is lost when the time runs out after some of them. A raw read cannot be
     * cancelled, but one of a report at most loses nothing when its own time runs out.
     */
    int readReports(int timeout, byte[] bytes) {
        return inTurn(Setup.IN, () -> {
            Deadline deadline = new Deadline(timeout);
            long lookedAt = System.nanoTime();
            int moved = 0;
            while (moved < bytes.length) {
                byte[] report = new byte[Math.min(reports.size(), bytes.length - moved)];
                int result = takeReport(report);
                if (result > 0) {
                    System.arraycopy(report, 0, bytes, moved, result);
                    moved += result;
                    continue;
                }
                boolean look = System.nanoTime() - lookedAt >= PRESENCE_NANOS;
                if (result != UsbAccessCode.TIMED_OUT.code() || deadline.isOver() || (look && target.isAbsent())) {
                    return moved > 0 ? moved : result;
                }
                lookedAt = look ? System.nanoTime() : lookedAt;
                pauses.sleep(deadline);
            }
            return moved;
        });
    }

    /** The raw read of a report, or of its start. */
    private int takeReport(byte[] report) {
        return gate.pass(transfer(Setup.IN, false), () -> usb.usbReadInterruptPipeEx(target.list(), target.index(), 0,
                report.length, ReportPauses.LOOK_MS, report, reports.size(), 0));
    }

    /** Writes reports one by one, so that a close need not wait for all of them. */
    int writeReports(int timeout, byte[] bytes) {
        return inTurn(0, () -> {
            int moved = 0;
            while (moved < bytes.length) {
                byte[] report = Arrays.copyOfRange(bytes, moved, Math.min(moved + reports.size(), bytes.length));
                pauses.awaitAnswer();
                int result = gate.pass(transfer(0, false), () -> sendReport(timeout, report));
                if (result <= 0) {
                    return result;
                }
                moved += result;
            }
            return moved;
        });
    }

    private int sendReport(int timeout, byte[] report) {
        return usb.usbWriteInterruptPipeEx(target.list(), target.index(), 0, report.length, timeout, report,
                reports.size(), reports.fill());
    }

    /** What the device reports of itself (recipient 0) or of an endpoint (recipient 2). */
    Status status(int recipient, int index) {
        byte[] request = Setup.bytes(Setup.IN | recipient, 0, 0, index, new byte[2]);
        int result = control(request, STATUS_MS);
        return new Status(result >= 0, result > 0, result > 0 && (request[Setup.PACKET_BYTES] & 1) != 0);
    }

    private TransferGate.Transfer transfer(int endpoint, boolean isRead) {
        return new TransferGate.Transfer(this, () -> isRead || ended,
                () -> usb.usbCancelPipeTransfer(target.list(), target.index(), endpoint) == 0);
    }

    private int inTurn(int endpoint, IntSupplier work) {
        ReentrantLock turn = endpoints.computeIfAbsent(endpoint, address -> new ReentrantLock());
        turn.lock();
        try {
            return work.getAsInt();
        } finally {
            turn.unlock();
        }
    }
}
