package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;
import java.io.IOException;

/**
 * A call on the bus that failed: what was attempted, and the code that tells why. Where a program acts differently,
 * there is a class of its own: {@link UsbTimeoutException}, {@link UsbDeviceGoneException}, {@link
 * UsbStalledException}, {@link UsbBusyException}, {@link UsbOverflowException} and {@link UsbInterruptedException}. A
 * missing permission has none, since the codes do not tell it from a device that is just leaving: {@link
 * UsbAccessCode#OPEN_FAILED} is either.
 */
public class UsbException extends IOException {
    private static final long serialVersionUID = 1L;

    /** A few words. */
    private final String attempted;
    /** Never null. */
    private final UsbAccessCode code;
    /** 0 or more. */
    private int moved;

    UsbException(String attempted, UsbAccessCode code, int moved) {
        this(attempted, code, code.code(), moved);
    }

    /** For a result that {@code code} stands for, which is OTHER when the result is no documented code. */
    UsbException(String attempted, UsbAccessCode code, int result, int moved) {
        super(attempted + ": " + UsbAccessCode.describe(result));
        this.attempted = attempted;
        this.code = code;
        this.moved = moved;
    }

    /** The same for a call of several transfers, of which those before this one moved so many bytes. */
    UsbException after(int movedBefore) {
        moved += movedBefore;
        return this;
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
     * How much of the bytes had moved when the call failed.
     *
     * @return the number of bytes that are known to have moved; 0 also when that is not known, as after a time-out
     */
    public int moved() {
        return moved;
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
