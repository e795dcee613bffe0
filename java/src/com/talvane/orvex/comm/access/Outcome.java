package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;

/**
 * What a caller gets for the result of a raw transfer. The raw calls answer 0 bytes, and at once, for a device that
 * stalls or is gone as well as for an empty packet; the device itself is asked then.
 */
record Outcome(Connection connection, String attempted, int endpoint) {
    private static final int DEVICE = 0;
    private static final int ENDPOINT = 2;

    int ofRead(int length, int result) throws UsbException {
        demandSuccess(result);
        if (result == 0 && length > 0) {
            demandAnswer();
        }
        return result;
    }

    int ofWrite(int length, int result) throws UsbException {
        demandSuccess(result);
        if (result == 0 && length > 0) {
            demandAnswer();
            throw new UsbException(attempted, UsbAccessCode.IO);
        }
        return result;
    }

    int ofControl(byte[] setupAndData, int result, boolean timeIsOver) throws UsbException {
        demandSuccess(result);
        if (result == 0 && setupAndData.length > Setup.PACKET_BYTES) {
            if (isGone()) {
                throw gone();
            }
            demandOpen();
            if (timeIsOver) {
                throw new UsbTimeoutException(attempted);
            }
            if (setupAndData[0] >= 0) {
                throw new UsbStalledException(attempted);
            }
        }
        return result;
    }

    int ofReports(int result) throws UsbException {
        if (result < 0) {
            if (result == UsbAccessCode.NOT_OPEN.code() || connection.target().isAbsent()) {
                throw gone();
            }
            demandOpen();
        }
        return Result.check(attempted, result);
    }

    private void demandSuccess(int result) throws UsbException {
        if (result < 0) {
            // The endpoint is a possible one, so the device that is not open is one that was plugged in anew.
            if (result == UsbAccessCode.NOT_OPEN.code() || (result != UsbAccessCode.TIMED_OUT.code() && isGone())) {
                throw gone();
            }
            demandOpen();
            throw Result.failure(attempted, result);
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
            throw new UsbStalledException(attempted);
        }
        if (!status.sent() || connection.target().isAbsent()) {
            throw gone();
        }
        if (!status.answered()) {
            throw new UsbException(attempted, UsbAccessCode.IO);
        }
    }

    private void demandOpen() {
        if (connection.hasEnded()) {
            throw new IllegalStateException(connection.target().label() + " was closed");
        }
    }

    /** A device that was closed meanwhile does not count as gone. */
    private UsbException gone() {
        demandOpen();
        return new UsbDeviceGoneException(attempted, UsbAccessCode.NO_DEVICE);
    }
}
