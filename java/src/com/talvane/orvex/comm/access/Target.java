package com.talvane.orvex.comm.access;

import java.util.function.BooleanSupplier;

/**
 * What a connection is connected to: a place in a raw list, and what is known of the device there.
 *
 * @param list    the raw handle of the list
 * @param index   the place in the list, 0 for the first
 * @param isHid   whether it is a HID device
 * @param label   its name for people
 * @param absence asks the library whether it is absent by now
 * @param glance  the same without waiting for another thread
 */
record Target(int list, int index, boolean isHid, String label, BooleanSupplier absence, BooleanSupplier glance) {
    /** Whether the device is absent by now, as far as the system has reported. Takes the session lock. */
    boolean isAbsent() {
        return absence.getAsBoolean();
    }

    /** The same, as of an earlier look when another thread has the session lock. */
    boolean seemsAbsent() {
        return glance.getAsBoolean();
    }
}
