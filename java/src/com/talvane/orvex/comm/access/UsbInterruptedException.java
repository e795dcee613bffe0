package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;

/**
 * The thread was interrupted, and its transfer cancelled. The interrupt status of the thread stays set. {@link #moved}
 * tells how much had moved; what a read had got is in its buffer.
 */
public final class UsbInterruptedException extends UsbException {
    private static final long serialVersionUID = 1L;

    UsbInterruptedException(String attempted, int moved) {
        super(attempted, UsbAccessCode.INTERRUPTED, moved);
    }
}
