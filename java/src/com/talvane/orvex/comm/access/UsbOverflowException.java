package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;

/**
 * A packet did not fit into the part of the buffer that was given for it: the device sent more than was asked for. The
 * buffer holds the {@link #moved} bytes that did fit, the others are lost. Ask for a multiple of the packet size.
 */
public final class UsbOverflowException extends UsbException {
    private static final long serialVersionUID = 1L;

    UsbOverflowException(String attempted, int moved) {
        super(attempted, UsbAccessCode.OVERFLOW, moved);
    }
}
