package com.talvane.orvex.comm;

import java.util.Arrays;
import java.util.Optional;

/**
 * The negative results of {@link ORVEXCommUSBAccess}. Those up to {@link #OTHER} come from libusb, those from
 * {@link #NO_CONTEXT} on are this library's own.
 */
public enum UsbAccessCode {
    /** The operating system reported an input/output error. */
    IO(-1, "input/output error"),
    /** libusb refused an argument. */
    INVALID_PARAMETER(-2, "invalid parameter"),
    /** The program has no permission to use the device. */
    ACCESS(-3, "access denied (insufficient permissions)"),
    /** The device is gone. */
    NO_DEVICE(-4, "no such device (it may have been disconnected)"),
    /** The requested thing does not exist, for example a transfer to cancel. */
    NOT_FOUND(-5, "not found"),
    /** Another program or driver uses it. */
    BUSY(-6, "resource busy"),
    /** A request of libusb timed out. A transfer that times out returns {@link #TIMED_OUT} instead. */
    LIBUSB_TIMEOUT(-7, "operation timed out"),
    /** The device sent more than was requested. */
    OVERFLOW(-8, "overflow"),
    /** The device stalled. */
    PIPE(-9, "pipe error (the device stalled)"),
    /** A signal interrupted the call. */
    INTERRUPTED(-10, "system call interrupted"),
    /** Out of memory. */
    NO_MEMORY(-11, "insufficient memory"),
    /** The platform does not support the operation. */
    NOT_SUPPORTED(-12, "operation not supported on this platform"),
    /** Any other failure of libusb. */
    OTHER(-99, "other error"),

    /** There is no libusb context to release. Never returned to Java. */
    NO_CONTEXT(-101, "no libusb context (internal, not returned to Java)"),
    /** The update of a list has not started yet. Never returned to Java. */
    NOT_ENUMERATED(-102, "list not renewed yet (internal, not returned to Java)"),
    /** No list has the handle. */
    NO_SUCH_LIST(-103, "no device list has this handle"),
    /** No list has been created yet. */
    NO_LISTS(-104, "there is no device list at all"),
    /** The device is open already. */
    ALREADY_OPEN(-105, "the device is already open"),
    /** The device could not be opened. */
    OPEN_FAILED(-107, "the device could not be opened (no permission, or gone)"),
    /** The interface could not be claimed: another program or a driver uses it. */
    CLAIM_FAILED(-108, "the interface could not be claimed (another program or a driver uses it)"),
    /** The device is not open, or the endpoint number is above 15. */
    NOT_OPEN(-109, "the device is not open, or has no such endpoint number"),
    /** The write could not be started, or a report could not be sent. */
    WRITE_FAILED(-112, "the write could not be started or sent"),
    /** The read could not be started. */
    READ_FAILED(-113, "the read could not be started"),
    /** No such device, or an argument out of its range. */
    BAD_ARGUMENT(-114, "no such device or not open; or packet size, descriptor type or string index out of range"),
    /** The process has a session already. */
    SESSION_OPEN(-115, "a session is already open"),
    /** The id is not that of the open session. */
    WRONG_SESSION(-116, "not the id of the open session"),
    /** The library does not support the operation for this device, or for any. */
    NOT_OFFERED(-120, "the operation is not offered for this device"),
    /** Configuration 1 could not be set. */
    CONFIGURATION_FAILED(-130, "configuration 1 could not be set"),
    /** The device is absent, or the descriptor is not available. */
    NOT_AVAILABLE(-131, "the device is absent, or the descriptor is not available"),
    /** The read thread of a HID device could not be started. */
    HID_THREAD_FAILED(-140, "the HID read thread could not be started"),
    /** The transfer timed out. */
    TIMED_OUT(-150, "the transfer timed out"),
    /** The library does not support the device's class. */
    UNSUPPORTED_CLASS(-158, "the device's class is not supported"),
    /** There was no buffer for a configuration. Never returned to Java. */
    NO_BUFFER(-170, "no buffer given (internal, not returned to Java)"),
    /** There was no place to store a context. Never returned to Java. */
    NO_CONTEXT_ADDRESS(-200, "no place for the libusb context (internal, not returned to Java)");

    private final int code;
    private final String text;

    UsbAccessCode(int code, String text) {
        this.code = code;
        this.text = text;
    }

    /**
     * Returns the number of the code, as the methods return it.
     *
     * @return the code, below 0
     */
    public int code() {
        return code;
    }

    /**
     * Returns a description of the code for people.
     *
     * @return one line of English without a full stop
     */
    public String text() {
        return text;
    }

    /**
     * Returns whether the code comes from libusb or from this library.
     *
     * @return true for libusb's codes, -1 to -99
     */
    public boolean isFromLibusb() {
        return code > -100;
    }

    /**
     * Finds a code by its number.
     *
     * @param result the result of a method
     * @return the code; empty for results of 0 and above and for numbers that are not a code
     */
    public static Optional<UsbAccessCode> of(int result) {
        return Arrays.stream(values()).filter(c -> c.code == result).findFirst();
    }

    /**
     * Describes a result for people.
     *
     * @param result the result of a method
     * @return the number, followed by the text if it is a code
     */
    public static String describe(int result) {
        return of(result).map(c -> result + ": " + c.text).orElse(Integer.toString(result));
    }
}
