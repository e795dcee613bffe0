package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;

/** Results of raw calls as exceptions. */
final class Result {
    private Result() {
    }

    /** The exception for the negative result of a call that had moved some bytes. */
    static UsbException failure(String attempted, int result, int moved) {
        UsbAccessCode code = UsbAccessCode.of(result).orElse(UsbAccessCode.OTHER);
        return switch (code) {
            case TIMED_OUT -> new UsbTimeoutException(attempted, moved);
            case CLAIM_FAILED, SESSION_OPEN -> new UsbBusyException(attempted, code);
            default -> new UsbException(attempted, code, result, moved);
        };
    }

    /** Returns a result of 0 or more; throws the exception for a negative one. */
    static int check(String attempted, int result) throws UsbException {
        if (result < 0) {
            throw failure(attempted, result, 0);
        }
        return result;
    }
}
