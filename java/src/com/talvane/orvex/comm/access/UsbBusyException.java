package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;

/** Somebody else has it: another program or a driver the device, or this process a session already. */
public final class UsbBusyException extends UsbException {
    private static final long serialVersionUID = 1L;

    UsbBusyException(String attempted, UsbAccessCode code) {
        super(attempted, code, 0);
    }
}
