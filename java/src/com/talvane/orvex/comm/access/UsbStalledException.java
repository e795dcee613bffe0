package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;

/** The device refused: its endpoint is halted, or it did not take the control request. */
public final class UsbStalledException extends UsbException {
    private static final long serialVersionUID = 1L;

    UsbStalledException(String attempted, int moved) {
        super(attempted, UsbAccessCode.PIPE, moved);
    }
}
