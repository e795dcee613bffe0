package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;

/** The time of a transfer ran out, and nothing of it is known to have moved. The device is there: try again. */
public final class UsbTimeoutException extends UsbException {
    private static final long serialVersionUID = 1L;

    UsbTimeoutException(String attempted, int moved) {
        super(attempted, UsbAccessCode.TIMED_OUT, moved);
    }
}
