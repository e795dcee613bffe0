package com.talvane.orvex.comm.access;

/**
 * What a listener of a session is told: a device came or left.
 *
 * @param kind   which of it
 * @param device the device
 * @param list   the list that it is in
 * @param doubt  why it may be another device, as of this change
 */
public record UsbChange(Kind kind, UsbDevice device, UsbDeviceList list, UsbDoubt doubt) {
    /** How the bus changed. */
    public enum Kind {
        /** A device that the list has not had before is there. */
        ARRIVED,
        /** A device that was there is gone; with {@link UsbDoubt#UNREADABLE} it is rather there and not readable. */
        LEFT,
        /** A device of the list that was gone is there again. If it was open, it has to be closed and opened anew. */
        CAME_BACK
    }

    /**
     * A change of which it is certain what it means.
     *
     * @param kind   which of it
     * @param device the device
     * @param list   the list that it is in
     */
    public UsbChange(Kind kind, UsbDevice device, UsbDeviceList list) {
        this(kind, device, list, UsbDoubt.NONE);
    }

    @Override
    public String toString() {
        return kind + " " + device + (doubt == UsbDoubt.NONE ? "" : ", " + doubt);
    }
}
