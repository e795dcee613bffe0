package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.access.KnownDevices.News;
import com.talvane.orvex.comm.recording.Recorder;
import java.util.List;
import java.util.Optional;
import java.util.stream.Stream;

/**
 * The devices of some vendors. A device keeps its place and its object for as long as the session lives: one that is
 * pulled is absent, and is the same {@link UsbDevice} when it comes back. It is the same when its ids, its
 * release number and its texts are; where that is not enough to tell, {@link UsbDevice#doubt} says so.
 *
 * <p>Threads: any method on any thread, at any time.
 */
public final class UsbDeviceList {
    private final RawSession session;
    /** Under the session lock. */
    private final RawList raw;
    /** What the caller knows, from the making of the list or an update. */
    private final KnownDevices told = new KnownDevices();

    /**
     * What an update has found. A device that was away in between is in both lists.
     *
     * @param came devices that are there now and were not
     * @param left devices that are gone, or were
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

    UsbDeviceList(RawSession session, int[] vendorIds) throws UsbException {
        this.session = session;
        raw = new RawList(session, vendorIds);
        told.take(places());
    }

    /**
     * All devices that the list has had, in the order of their places, those that are absent among them.
     *
     * @return a list of its own
     * @throws IllegalStateException when the session is closed
     */
    public List<UsbDevice> devices() {
        return session.locked(() -> List.copyOf(places()));
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
     * Brings the list up to date. It costs next to nothing while nothing changed (0.03 us and a look at each
     * information line), so asking twenty times a second is fine; the news of a plug or pull may be a moment late. A
     * device that was pulled and is back by the time of the update is in both of the lists that are returned, or in
     * neither when nobody has looked meanwhile; if it was open, its transfers tell that it is gone.
     *
     * <p>A device that the library could not open to read its texts, as for lack of rights, is tried again here from
     * time to time: a quarter of a second later, and then after pauses that grow to a minute. One that it could open,
     * but one of whose texts it could not read, is tried eight times. Each attempt reads the texts of all devices of
     * these vendors. When those of the device can be read, the device without them has left, and the one with them has
     * come. Until then both have the {@linkplain UsbDevice#doubt doubt} {@link UsbDoubt#UNREADABLE}.
     *
     * @return what came and what left since the list was made or updated last
     * @throws IllegalStateException when the session is closed
     * @throws UsbException          when the library does not know the list any more
     */
    public Changes update() throws UsbException {
        return session.locked(() -> {
            Result.check("update the list", refresh());
            News news = told.take(places());
            List<UsbDevice> came = Stream.concat(news.cameBack().stream(), news.arrived().stream()).toList();
            return new Changes(came, news.left());
        });
    }

    /** Looks at the bus; what changed is still to be told by the next update. Under the session lock. */
    int refresh() {
        return raw.refresh();
    }

    /** Under the session lock. */
    List<ListedDevice> places() {
        return raw.devices();
    }

    /** Under the session lock. */
    void closeDevices() {
        places().forEach(ListedDevice::closeLocked);
    }

    /** Has the devices that are open described to a recording. Under the session lock. */
    void describeOpen(Recorder recorder) {
        places().stream().filter(ListedDevice::isOpen).forEach(device -> device.connection().betweenRequests(() -> {
            recorder.describe(device.place().list(), device.place().index());
            return 0;
        }));
    }

    /** After the session was closed, when places do not change any more. */
    void awaitListeners() {
        places().forEach(ListedDevice::awaitListeners);
    }

    /** Under the session lock. */
    void release() {
        raw.release();
    }

    /**
     * Tells who is there.
     *
     * @return the labels of the devices
     */
    @Override
    public String toString() {
        return places().toString();
    }
}
