package com.talvane.orvex.comm.system;

import java.util.List;
import java.util.function.Predicate;

/** Finds the ports of devices that the library has listed among those of which the system tells. */
public final class Ports {
    private Ports() {
    }

    /**
     * Finds the devices that may be one of the library's.
     *
     * @param vendorId  its vendor id
     * @param productId its product id
     * @param serial    as the library has read it, also with an interface's number behind it; empty if it has read none
     * @param isUnread  whether the library could read nothing
     * @return their ports; several if they look the same
     */
    public static List<String> of(int vendorId, int productId, String serial, boolean isUnread) {
        List<AttachedDevice> alike = some(AttachedDevice.below(AttachedDevice.root()),
                each -> each.vendorId() == vendorId && each.productId() == productId);
        List<AttachedDevice> found = isUnread ? alike : some(alike, each -> hasSerial(each, serial));
        if (found.isEmpty()) {
            // Whoever has read no serial number, the library or the kernel, may have failed to read it.
            found = serial.isEmpty() ? alike : some(alike, each -> each.serial().isEmpty());
        }
        return found.stream().map(AttachedDevice::port).toList();
    }

    private static boolean hasSerial(AttachedDevice device, String serial) {
        String read = device.serial().replaceAll("[^\\x00-\\xFF]", "?"); // as the library does
        return serial.equals(read) || (!read.isEmpty() && serial.startsWith(read + "_"));
    }

    private static List<AttachedDevice> some(List<AttachedDevice> devices, Predicate<AttachedDevice> which) {
        return devices.stream().filter(which).toList();
    }
}
