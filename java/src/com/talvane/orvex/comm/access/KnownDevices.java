package com.talvane.orvex.comm.access;

import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Predicate;

/** Which devices of a list somebody knows of, and whether they are there; for who wants to be told what is new. */
final class KnownDevices {
    private final Map<UsbDevice, Boolean> presence = new HashMap<>();

    /**
     * What somebody has not been told yet.
     *
     * @param arrived  are there and not known
     * @param cameBack are there again
     * @param left     are gone
     */
    record News(List<UsbDevice> arrived, List<UsbDevice> cameBack, List<UsbDevice> left) {
    }

    /** Tells what differs from what was known, which from now on is known. */
    News take(List<? extends UsbDevice> devices) {
        News news = new News(
                some(devices, device -> device.isPresent() && !presence.containsKey(device)),
                some(devices, device -> device.isPresent() && Boolean.FALSE.equals(presence.get(device))),
                some(devices, device -> !device.isPresent() && Boolean.TRUE.equals(presence.get(device))));
        devices.forEach(device -> presence.put(device, device.isPresent()));
        return news;
    }

    private static List<UsbDevice> some(List<? extends UsbDevice> devices, Predicate<UsbDevice> which) {
        return devices.stream().<UsbDevice>map(device -> device).filter(which).toList();
    }
}
