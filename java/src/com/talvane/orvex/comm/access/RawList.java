package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.access.ListedDevice.Place;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;

/**
 * The raw list of some vendors, and which device is in which of its places.
 *
 * <p>The library never reads the texts of a device again that it could not open when it listed it. So as long as there
 * is such a device, a second raw list is made from time to time. A device that can be read there has its place in the
 * second list, until the library lists it anew in the first; the unreadable one counts as absent. A second list without
 * such a device is released; the library keeps some hundred bytes of it.
 *
 * <p>Threads: under the session lock.
 */
final class RawList {
    /** Matches no device. With it, the ids of a further list differ from those of the first. */
    private static final int NO_VENDOR = -1;
    private static final long FIRST_PAUSE_NANOS = TimeUnit.MILLISECONDS.toNanos(250);
    private static final long LONGEST_PAUSE_NANOS = TimeUnit.MINUTES.toNanos(1);

    private final RawSession session;
    private final int[] vendorIds;
    private final int handle;
    /** Further lists that have devices. */
    private final List<Integer> further = new ArrayList<>();
    /** Grows only. */
    private final List<ListedDevice> devices = new ArrayList<>();
    /** Which of them is in each place of the first list. */
    private final List<ListedDevice> byIndex = new ArrayList<>();
    /** The unreadable devices whose places others have, by the index of the place. */
    private final Map<Integer, ListedDevice> unreadable = new HashMap<>();
    /** How many devices could not be read at the latest look at the bus. */
    private int tried;
    private long pause;
    private long nextLook;

    RawList(RawSession session, int[] vendorIds) throws UsbException {
        this.session = session;
        this.vendorIds = vendorIds.clone();
        handle = Result.check("list the devices",
                session.usb.usbCreateDeviceList2(session.id(), vendorIds.clone()));
        takeLines();
    }

    List<ListedDevice> devices() {
        return devices;
    }

    /** Looks at the bus. Returns the result of the raw update. */
    int refresh() {
        int result = session.usb.usbUpdateDeviceList(handle, 0);
        takeLines();
        int count = unreadablePlaces().size();
        if (count > tried) {
            pause = FIRST_PAUSE_NANOS;
            nextLook = System.nanoTime() + pause;
        } else if (count > 0 && System.nanoTime() - nextLook >= 0) {
            lookAgain();
            pause = Math.min(2 * pause, LONGEST_PAUSE_NANOS);
            nextLook = System.nanoTime() + pause;
        }
        tried = count;
        return result;
    }

    private void takeLines() {
        List<String> lines = session.lines(handle);
        unreadable.keySet().removeIf(index -> !isPresent(lines.get(index)) && giveBack(index));
        for (int index = 0; index < lines.size(); index++) {
            Place place = new Place(handle, index);
            if (index == byIndex.size()) {
                byIndex.add(inPlace(place, lines.get(index)));
            } else if (!unreadable.containsKey(index)) {
                byIndex.get(index).takeLine(place, lines.get(index));
            }
        }
    }

    private static boolean isPresent(String line) {
        return line.startsWith("1");
    }

    /** The library has listed the devices anew: the one that had the place of an unreadable one has its own again. */
    private boolean giveBack(int index) {
        byIndex.get(index).leave();
        byIndex.set(index, unreadable.get(index));
        return true;
    }

    /** An absent device that has the same texts and now this place, or a new one. */
    private ListedDevice inPlace(Place place, String line) {
        for (ListedDevice device : devices) {
            if (!device.isPresent() && device.hasTextsOf(line)) {
                device.takeLine(place, line);
                return device;
            }
        }
        ListedDevice device = new ListedDevice(session, devices.size(), this::refresh, place, line);
        devices.add(device);
        return device;
    }

    private List<Integer> unreadablePlaces() {
        List<Integer> places = new ArrayList<>();
        for (int index = 0; index < byIndex.size(); index++) {
            ListedDevice device = byIndex.get(index);
            if (device.isPresent() && device.info().isUnopenable() && !device.isOpen()) {
                places.add(index);
            }
        }
        return places;
    }

    /** Makes a further list; keeps it when a device that was unreadable is readable in it. */
    private void lookAgain() {
        int[] ids = Arrays.copyOf(vendorIds, vendorIds.length + 1);
        ids[vendorIds.length] = NO_VENDOR;
        int second = session.usb.usbCreateDeviceList2(session.id(), ids);
        if (second < 0 || second == handle) {
            return;
        }
        List<String> lines = session.lines(second);
        boolean found = false;
        for (int index : unreadablePlaces()) {
            found |= replace(index, second, lines);
        }
        if (found) {
            further.add(second);
        } else {
            session.usb.usbReleaseDeviceList(second);
        }
    }

    /** Puts a device of the second list into the place of an unreadable one that it may be. */
    private boolean replace(int index, int second, List<String> lines) {
        ListedDevice old = byIndex.get(index);
        for (int other = 0; other < lines.size(); other++) {
            String line = lines.get(other);
            UsbDeviceInfo info = UsbDeviceInfo.parse(line);
            boolean isNew = devices.stream().noneMatch(each -> each.isPresent() && each.hasTextsOf(line));
            if (isNew && !info.isUnopenable() && info.isOfSameType(old.info())) {
                old.leave();
                unreadable.put(index, old);
                byIndex.set(index, inPlace(new Place(second, other), line));
                return true;
            }
        }
        return false;
    }

    void release() {
        further.forEach(session.usb::usbReleaseDeviceList);
        session.usb.usbReleaseDeviceList(handle);
    }
}
