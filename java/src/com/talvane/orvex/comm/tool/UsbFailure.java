package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.UsbAccessCode;

/** A call that answered with a negative code. */
final class UsbFailure extends RuntimeException {
    private static final long serialVersionUID = 1L;

    UsbFailure(String text) {
        super(text);
    }

    UsbFailure(String action, int code) {
        this(action + ": " + UsbAccessCode.describe(code));
    }

    /** Passes a good result on; a negative one ends the action. */
    static int check(String action, int result) {
        if (result < 0) {
            throw new UsbFailure(action, result);
        }
        return result;
    }
}
