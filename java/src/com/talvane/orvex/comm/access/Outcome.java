package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;
import com.talvane.orvex.comm.access.Connection.Moved;

/**
 * What a caller gets for the result of a raw transfer. The raw calls answer 0 bytes, and at once, for a device that
 * stalls or is gone as well as for an empty packet; the device itself is asked then.
 *
 * @param connection the open device
 * @param action     what was attempted, such as "read from"
 * @param endpoint   where; 0 when there is no choice
 */
record Outcome(Connection connection, String action, int endpoint) {
    private static final int DEVICE = 0;
    private static final int ENDPOINT = 2;

    /** For people. Put together only when something failed: most transfers are shorter than that takes. */
    String attempted() {
        String where = endpoint == 0 ? "" : String.format(" endpoint 0x%02X of", endpoint);
        return action + where + " " + connection.target().label();
    }

    int ofRead(int length, int result) throws UsbException {
        if (result > length) {
            throw new UsbOverflowException(attempted(), length);
        }
        demandSuccess(length, result);
        if (result == 0 && length > 0) {
            demandAnswer();
        }
        return result;
    }

    int ofWrite(int length, int result) throws UsbException {
        demandSuccess(length, result);
        if (result == 0 && length > 0) {
            demandAnswer();
            throw new UsbException(attempted(), UsbAccessCode.IO, 0);
        }
        return result;
    }

    int ofControl(int length, int result, boolean timeIsOver) throws UsbException {
        demandSuccess(length, result);
        if (result == 0 && length > 0) {
            if (isGone()) {
                throw gone(0);
            }
            demandOpen();
            if (timeIsOver) {
                throw new UsbTimeoutException(attempted(), 0);
            }
            throw new UsbStalledException(attempted(), 0);
        }
        return result;
    }

    int ofReadReports(int length, Moved moved) throws UsbException {
        demandNoInterrupt(length, moved.bytes());
        if (moved.bytes() == 0 && length > 0) {
            throw reportFailure(moved);
        }
        return moved.bytes();
    }

    int ofWriteReports(int length, Moved moved) throws UsbException {
        demandNoInterrupt(length, moved.bytes());
        if (moved.bytes() < length) {
            throw reportFailure(moved);
        }
        return moved.bytes();
    }

    private UsbException reportFailure(Moved moved) {
        int result = moved.result();
        if (result == UsbAccessCode.NOT_OPEN.code() || connection.target().isAbsent()) {
            return gone(moved.bytes());
        }
        demandOpen();
        return Result.failure(attempted(), result, moved.bytes());
    }

    /** A transfer that moved all bytes has not been cancelled by an interrupt of this thread; another one may have. */
    private void demandNoInterrupt(int length, int moved) throws UsbException {
        if (Thread.currentThread().isInterrupted() && (moved < length || length == 0)) {
            throw new UsbInterruptedException(attempted(), Math.max(moved, 0));
        }
    }

    private void demandSuccess(int length, int result) throws UsbException {
        demandNoInterrupt(length, result);
        if (result < 0) {
            // The endpoint is a possible one, so the device that is not open is one that was plugged in anew.
            if (result == UsbAccessCode.NOT_OPEN.code() || (result != UsbAccessCode.TIMED_OUT.code() && isGone())) {
                throw gone(0);
            }
            demandOpen();
            throw Result.failure(attempted(), result, 0);
        }
    }

    private boolean isGone() {
        return !connection.status(DEVICE, 0).sent() || connection.target().isAbsent();
    }

    /** Comes back when the device is there and its endpoint is not halted. */
    private void demandAnswer() throws UsbException {
        Connection.Status status = connection.status(ENDPOINT, endpoint);
        demandOpen();
        if (status.bit()) {
            throw new UsbStalledException(attempted(), 0);
        }
        if (!status.sent() || connection.target().isAbsent()) {
            throw gone(0);
        }
        if (!status.answered()) {
            throw new UsbException(attempted(), UsbAccessCode.IO, 0);
        }
    }

    private void demandOpen() {
        if (connection.hasEnded()) {
            throw new IllegalStateException(connection.target().label() + " was closed");
        }
    }

    /** A device that was closed meanwhile does not count as gone. */
    private UsbException gone(int moved) {
        demandOpen();
        return new UsbDeviceGoneException(attempted(), UsbAccessCode.NO_DEVICE, moved);
    }
}
