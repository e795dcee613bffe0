package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.UsbAccessCode;

/** A call that returned a negative code. */
final class UsbFailure extends RuntimeException {
    private static final long serialVersionUID = 1L;

    UsbFailure(String text) {
        super(text);
    }

    UsbFailure(String action, int code) {
        this(action + ": " + UsbAccessCode.describe(code));
    }

    /** Returns a result of 0 or more; throws for a negative one. */
    static int check(String action, int result) {
        if (result < 0) {
            throw new UsbFailure(action, result);
        }
        return result;
    }
}
