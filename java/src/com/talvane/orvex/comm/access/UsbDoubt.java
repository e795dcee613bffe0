package com.talvane.orvex.comm.access;

/**
 * Why it is not certain which device a {@link UsbDevice} of a list is. The library knows a device by its ids, its
 * release number and its three texts, and by nothing else.
 */
public enum UsbDoubt {
    /** It is certain. */
    NONE,
    /**
     * The list has or had several devices that look the same, mostly ones without serial numbers. When one of them is
     * pulled, the list may tell that another one left, and open devices may change places: the one that has lost its
     * device ends its transfers as if pulled. {@link UsbDeviceInfo#ports} tells where such devices are.
     */
    TWIN,
    /**
     * A text of the device could not be read: it could not be opened, as for lack of rights, or did not answer. So a
     * device that is known counts as absent while it is plugged in, and is there without that text as another one.
     * Absent and present, both have this doubt. The list tries to read it again, as {@link UsbDeviceList#update} tells.
     */
    UNREADABLE
}
