package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.access.KnownDevices.News;
import com.talvane.orvex.comm.access.ListedDevice.Place;
import com.talvane.orvex.comm.access.Observed.Found;
import com.talvane.orvex.comm.access.UsbDeviceInfo.Family;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * The raw list of some vendors, and which device is in which of its places.
 *
 * <p>The library never reads the texts of a device again that it could not read when it listed it. So as long as there
 * is such a device, a second raw list is made from time to time. A device that can be read there has its place in the
 * second list, until the library lists it anew in the first; the unreadable one counts as absent. A second list without
 * such a device is released; the library keeps some hundred bytes of it.
 *
 * <p>Threads: under the session lock.
 */
final class RawList {
    /** Matches no device. With it, the ids of a further list differ from those of the first. */
    private static final int NO_VENDOR = -1;

    private static final int DEVICE_DESCRIPTOR_BYTES = 18;

    private final RawSession session;
    private final int[] vendorIds;
    private final int handle;
    /** Further lists that have devices. */
    private final List<Integer> further = new ArrayList<>();
    /** Grows only. */
    private final List<ListedDevice> devices = new ArrayList<>();
    /** Which of them is in each place of the first list. */
    private final List<ListedDevice> byIndex = new ArrayList<>();
    /** What the log knows. */
    private final KnownDevices told = new KnownDevices();
    private final Set<ListedDevice> warnedOf = new HashSet<>();
    /** The devices of further lists that an unreadable one has turned out to be, by the index of that. */
    private final Map<Integer, List<ListedDevice>> readAgain = new HashMap<>();
    private final RetryTimes retries = new RetryTimes();
    /** The lines of the first list, as they were taken. */
    private List<String> latest = List.of();

    RawList(RawSession session, int[] vendorIds) throws UsbException {
        this.session = session;
        this.vendorIds = vendorIds.clone();
        handle = Result.check("list the devices",
                session.usb.usbCreateDeviceList2(session.id(), vendorIds.clone()));
        takeLines();
        takeNews();
        warnOfUnreadable();
    }

    List<ListedDevice> devices() {
        return devices;
    }

    /** Looks at the bus. Returns the result of the raw update. */
    int refresh() {
        return Observed.update(this::look, this::takeNews);
    }

    private int look() {
        int result = session.usb.usbUpdateDeviceList(handle, 0);
        takeLines();
        if (retries.isDue(unreadablePlaces().size(), System.nanoTime())) {
            lookAgain();
            warnOfUnreadable();
        }
        return result;
    }

    private void takeLines() {
        List<String> lines = session.lines(handle);
        if (lines.equals(latest)) {
            return;
        }
        latest = lines;
        readAgain.entrySet().removeIf(each -> !isPresent(lines.get(each.getKey())) && leave(each.getValue()));
        for (int index = 0; index < lines.size(); index++) {
            Place place = new Place(handle, index);
            if (index == byIndex.size()) {
                byIndex.add(inPlace(place, lines.get(index)));
            } else if (!readAgain.containsKey(index)) {
                byIndex.get(index).takeLine(place, lines.get(index));
            }
        }
        settle();
    }

    private static boolean isPresent(String line) {
        return line.startsWith("1");
    }

    /** The library has listed the devices anew: those of a further list have places in the first again. */
    private static boolean leave(List<ListedDevice> devices) {
        devices.forEach(ListedDevice::leave);
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

    /** After a look: what is in doubt, and which devices have come. */
    private void settle() {
        List<ListedDevice> unreadable = devices.stream()
                .filter(device -> device.isPresent() && device.info().lacksText(deviceDescriptor(device.place())))
                .toList();
        devices.forEach(device -> device.settle(doubtAbout(device, unreadable)));
    }

    private UsbDoubt doubtAbout(ListedDevice device, List<ListedDevice> unreadable) {
        boolean mayBeUnreadable = device.isPresent() ? unreadable.contains(device)
                : unreadable.stream().anyMatch(other -> other.info().mayBe(device.info()));
        boolean hasTwin = devices.stream().anyMatch(other -> other != device && other.hasTextsOf(device.line()));
        return mayBeUnreadable ? UsbDoubt.UNREADABLE : hasTwin ? UsbDoubt.TWIN : UsbDoubt.NONE;
    }

    private byte[] deviceDescriptor(Place place) {
        byte[] bytes = new byte[DEVICE_DESCRIPTOR_BYTES];
        int size = session.usb.usbGetDeviceDescriptor(place.list(), place.index(), 1, 0, bytes.length, bytes);
        return Arrays.copyOf(bytes, Math.max(size, 0));
    }

    private List<Integer> unreadablePlaces() {
        List<Integer> places = new ArrayList<>();
        for (int index = 0; index < byIndex.size(); index++) {
            ListedDevice device = byIndex.get(index);
            boolean isUnreadable = device.isPresent() && device.doubt() == UsbDoubt.UNREADABLE;
            if (isUnreadable && !device.isOpen() && retries.isWorthwhile(device)) {
                places.add(index);
            }
        }
        return places;
    }

    private Found takeNews() {
        News news = told.take(devices);
        news.left().forEach(device -> Log.debug(() -> "left: " + device.info()));
        news.cameBack().forEach(device -> Log.debug(() -> "came back: " + device.info()));
        news.arrived().forEach(device -> Log.debug(() -> "found: " + device.info()));
        return new Found(news.arrived().size() + news.cameBack().size(), news.left().size());
    }

    /** Once for each device; of one that was plugged in just now, when it has had some time to become readable. */
    private void warnOfUnreadable() {
        for (ListedDevice device : devices) {
            UsbDeviceInfo info = device.info();
            if (info.present() && info.isUnopenable() && warnedOf.add(device)) {
                Log.warning(String.format("%04X:%04X could not be opened to read its texts; orvex-usb doctor tells why",
                        info.vendorId(), info.productId()), null);
            }
        }
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
            retries.note(byIndex.get(index));
            found |= isIn(second, lines, index);
        }
        if (found) {
            further.add(second);
            settle();
        } else {
            session.usb.usbReleaseDeviceList(second);
        }
    }

    /** Looks for a device of the second list that the unreadable one may be, which then counts as absent. */
    private boolean isIn(int second, List<String> lines, int index) {
        ListedDevice old = byIndex.get(index);
        for (int other = 0; other < lines.size(); other++) {
            UsbDeviceInfo info = UsbDeviceInfo.parse(lines.get(other));
            Place place = new Place(second, other);
            boolean isPart = info.family() == Family.INTERFACE && old.info().family() != Family.INTERFACE;
            if (old.info().mayBe(info) && !isPart && isNew(lines.get(other))
                    && !info.lacksText(deviceDescriptor(place))) {
                old.leave();
                List<ListedDevice> found = new ArrayList<>(List.of(inPlace(place, lines.get(other))));
                if (old.info().isUnopenable()) {
                    found.addAll(interfaces(info, second, lines));
                }
                readAgain.put(index, found);
                return true;
            }
        }
        return false;
    }

    private boolean isNew(String line) {
        return devices.stream().noneMatch(each -> each.isPresent() && each.hasTextsOf(line));
    }

    /** The interfaces of a composite device of the second list: the library finds none of one that it cannot open. */
    private List<ListedDevice> interfaces(UsbDeviceInfo composite, int second, List<String> lines) {
        List<ListedDevice> found = new ArrayList<>();
        for (int other = 0; other < lines.size(); other++) {
            if (UsbDeviceInfo.parse(lines.get(other)).isInterfaceOf(composite) && isNew(lines.get(other))) {
                found.add(inPlace(new Place(second, other), lines.get(other)));
            }
        }
        return found;
    }

    void release() {
        further.forEach(session.usb::usbReleaseDeviceList);
        session.usb.usbReleaseDeviceList(handle);
    }
}
