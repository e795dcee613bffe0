package com.talvane.orvex.comm.access;

import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Predicate;

/** Which stays of the devices of a list somebody knows of; for who wants to be told what is new. */
final class KnownDevices {
    private final Map<ListedDevice, Integer> stays = new HashMap<>();

    /**
     * What somebody has not been told yet. A device that left and is back meanwhile is in both of the latter.
     *
     * @param arrived  are there and not known
     * @param cameBack are there again
     * @param left     are gone
     */
    record News(List<UsbDevice> arrived, List<UsbDevice> cameBack, List<UsbDevice> left) {
    }

    /** Tells what differs from what was known, which from now on is known. */
    News take(List<ListedDevice> devices) {
        News news = new News(
                some(devices, device -> device.isPresent() && !stays.containsKey(device)),
                some(devices, device -> device.isPresent() && stays.containsKey(device) && isNew(device)),
                some(devices, device -> stays.getOrDefault(device, ListedDevice.ABSENT) != ListedDevice.ABSENT
                        && isNew(device)));
        devices.forEach(device -> stays.put(device, device.stay()));
        return news;
    }

    private boolean isNew(ListedDevice device) {
        return stays.get(device) != device.stay();
    }

    private static List<UsbDevice> some(List<ListedDevice> devices, Predicate<ListedDevice> which) {
        return devices.stream().filter(which).<UsbDevice>map(device -> device).toList();
    }
}
