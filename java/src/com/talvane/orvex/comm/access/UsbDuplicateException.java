package com.talvane.orvex.comm.access;

import java.util.List;

/** Several devices that are present have the serial number that was looked for. */
public final class UsbDuplicateException extends IllegalStateException {
    private static final long serialVersionUID = 1L;

    /** Not kept when the exception is serialized. */
    private final transient List<UsbDevice> devices;

    UsbDuplicateException(String serial, List<UsbDevice> devices) {
        super(devices.size() + " devices have the serial number " + UsbDeviceInfo.printable(serial));
        this.devices = devices;
    }

    /**
     * The devices, to choose one by something else.
     *
     * @return two or more, in the order of their places
     */
    public List<UsbDevice> devices() {
        return devices;
    }
}
