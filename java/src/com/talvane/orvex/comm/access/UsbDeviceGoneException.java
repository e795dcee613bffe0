package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;

/** The device was pulled, or pulled and plugged in again. Close it; when it is back, it can be opened again. */
public final class UsbDeviceGoneException extends UsbException {
    private static final long serialVersionUID = 1L;

    UsbDeviceGoneException(String attempted, UsbAccessCode code, int moved) {
        super(attempted, code, moved);
    }
}
