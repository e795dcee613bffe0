package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.access.KnownDevices.News;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.stream.Stream;

/**
 * The devices of some vendors. A device keeps its place and its object for as long as the session lives: one that is
 * pulled is absent, and is the same {@link UsbDevice} when it comes back. What makes it the same, and when two devices
 * change places, {@link com.talvane.orvex.comm.ORVEXCommUSBAccess#usbUpdateDeviceList} tells.
 */
public final class UsbDeviceList {
    private final RawSession session;
    private final int handle;
    /** Grows only; under the session lock. */
    private final List<ListedDevice> places = new ArrayList<>();
    /** What the caller knows, from the making of the list or an update. */
    private final KnownDevices told = new KnownDevices();

    /**
     * What an update has found.
     *
     * @param came devices that are there now and were not
     * @param left devices that are gone
     */
    public record Changes(List<UsbDevice> came, List<UsbDevice> left) {
        /**
         * Whether all is as before.
         *
         * @return true when no device came or left
         */
        public boolean isEmpty() {
            return came.isEmpty() && left.isEmpty();
        }
    }

    UsbDeviceList(RawSession session, int handle) {
        this.session = session;
        this.handle = handle;
        takeLines();
        told.take(places);
    }

    /**
     * All devices that the list has had, in the order of their places, those that are absent among them.
     *
     * @return a list of its own
     * @throws IllegalStateException when the session is closed
     */
    public List<UsbDevice> devices() {
        return session.locked(() -> List.copyOf(places));
    }

    /**
     * Finds a device that is present by its serial number.
     *
     * @param serial as the information line has it
     * @return the device; empty when there is none
     * @throws UsbDuplicateException when several present devices have it; it tells which
     * @throws IllegalStateException when the session is closed
     */
    public Optional<UsbDevice> find(String serial) {
        List<UsbDevice> found = devices().stream()
                .filter(device -> device.isPresent() && device.info().serial().equals(serial))
                .toList();
        if (found.size() > 1) {
            throw new UsbDuplicateException(serial, found);
        }
        return found.stream().findFirst();
    }

    /**
     * Brings the list up to date. It costs little while nothing changed, so it may be called often; the news of a plug
     * or pull may be a moment late. A device that was pulled and is back by the time of the update is in neither list;
     * if it was open, its transfers tell that it is gone.
     *
     * @return what came and what left since the list was made or updated last
     * @throws IllegalStateException when the session is closed
     * @throws UsbException          when the library does not know the list any more
     */
    public Changes update() throws UsbException {
        return session.locked(() -> {
            Result.check("update the list", refresh());
            News news = told.take(places);
            List<UsbDevice> came = Stream.concat(news.cameBack().stream(), news.arrived().stream()).toList();
            return new Changes(came, news.left());
        });
    }

    /** Looks at the bus; what changed is still to be told by the next update. Under the session lock. */
    int refresh() {
        int result = session.usb.usbUpdateDeviceList(handle, 0);
        takeLines();
        return result;
    }

    private void takeLines() {
        List<String> lines = session.lines(handle);
        for (int index = 0; index < lines.size(); index++) {
            if (index == places.size()) {
                places.add(new ListedDevice(session, handle, index, this::refresh, lines.get(index)));
            } else {
                places.get(index).takeLine(lines.get(index));
            }
        }
    }

    /** Under the session lock. */
    List<ListedDevice> places() {
        return places;
    }

    /** Under the session lock. */
    void closeDevices() {
        places.forEach(ListedDevice::closeLocked);
    }

    /** After the session was closed, when places do not change any more. */
    void awaitListeners() {
        places.forEach(ListedDevice::awaitListeners);
    }

    void release() {
        session.usb.usbReleaseDeviceList(handle);
    }
}
