package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;
import java.io.IOException;

/**
 * A call on the bus that failed: what was attempted, and the code that tells why. Where a program acts differently,
 * there is a class of its own: {@link UsbTimeoutException}, {@link UsbDeviceGoneException}, {@link
 * UsbStalledException} and {@link UsbBusyException}. A missing permission has none, since the codes do not tell it
 * from a device that is just leaving: {@link UsbAccessCode#OPEN_FAILED} is either.
 */
public class UsbException extends IOException {
    private static final long serialVersionUID = 1L;

    /** A few words. */
    private final String attempted;
    /** Never null. */
    private final UsbAccessCode code;

    UsbException(String attempted, UsbAccessCode code) {
        this(attempted, code, code.code());
    }

    private UsbException(String attempted, UsbAccessCode code, int result) {
        super(attempted + ": " + UsbAccessCode.describe(result));
        this.attempted = attempted;
        this.code = code;
    }

    /** The exception for the negative result of a call. */
    static UsbException of(String attempted, int result) {
        UsbAccessCode code = UsbAccessCode.of(result).orElse(UsbAccessCode.OTHER);
        return switch (code) {
            case TIMED_OUT -> new UsbTimeoutException(attempted);
            case CLAIM_FAILED, SESSION_OPEN -> new UsbBusyException(attempted, code);
            default -> new UsbException(attempted, code, result);
        };
    }

    /** Passes a good result on. */
    static int check(String attempted, int result) throws UsbException {
        if (result < 0) {
            throw of(attempted, result);
        }
        return result;
    }

    /**
     * Why it failed.
     *
     * @return the code of the failed call, or the one that fits what was found out about its failure
     */
    public UsbAccessCode code() {
        return code;
    }

    /**
     * What was attempted, for people.
     *
     * @return a few words, such as "read from endpoint 0x81 of ECHO0001"
     */
    public String attempted() {
        return attempted;
    }
}
