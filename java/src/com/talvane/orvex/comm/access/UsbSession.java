package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.access.UsbRecording.Without;
import com.talvane.orvex.comm.recording.Recorder;
import java.io.IOException;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.Executor;
import java.util.function.Consumer;
import java.util.stream.Collectors;

/**
 * The session: where lists of devices come from. A process has one at a time, and while it is open nobody in the
 * process uses the raw class beside it.
 *
 * <p>Closing it closes the devices that are open, then releases the lists, then ends the session.
 *
 * <p>Threads: any method on any thread, at any time.
 */
public final class UsbSession implements AutoCloseable {
    /** Stands for the devices of all vendors in the raw call. */
    private static final int ALL_VENDORS = -1;
    private static final int MOST_VENDORS = 16;
    private static final int GREATEST_ID = 0xFFFF;

    final RawSession raw;
    private final Map<Set<Integer>, UsbDeviceList> lists = new LinkedHashMap<>();
    private final ChangeWatch watch;

    private UsbSession(RawSession raw) {
        this.raw = raw;
        watch = new ChangeWatch(raw, lists.values());
    }

    /**
     * Opens the session.
     *
     * @return the session
     * @throws UsbBusyException     when the process has one already
     * @throws UsbException         when libusb cannot start
     * @throws UnsatisfiedLinkError when the native library cannot be loaded
     */
    public static UsbSession open() throws UsbException {
        return new UsbSession(RawSession.open());
    }

    /**
     * Gives the list of the devices of some vendors. It is made when it is asked for the first time and lives as long
     * as the session; asking again for the same vendors, in whatever order, gives the same object (not updated).
     *
     * <p>A vendor belongs to one list only: the library notes what comes and goes in the first list that has the
     * vendor, so a second one would never learn of it.
     *
     * @param vendorIds one to sixteen USB vendor ids, each 0 to 0xFFFF and given once
     * @return the list
     * @throws IllegalArgumentException when there are none or too many, or one is out of range or given twice, or is
     *                                  in another list of this session
     * @throws IllegalStateException    when the session is closed
     * @throws UsbException             when the library cannot make the list
     */
    public UsbDeviceList list(int... vendorIds) throws UsbException {
        Set<Integer> vendors = checked(vendorIds);
        return raw.locked(() -> {
            UsbDeviceList known = lists.get(vendors);
            if (known != null) {
                return known;
            }
            demandFree(vendors);
            UsbDeviceList made = new UsbDeviceList(raw, vendorIds);
            lists.put(vendors, made);
            watch.begin(made);
            return made;
        });
    }

    private static Set<Integer> checked(int[] vendorIds) {
        Setup.within("number of vendor ids", vendorIds.length, 1, MOST_VENDORS);
        for (int id : vendorIds) {
            Setup.withinHex("vendor id", id, 0, GREATEST_ID);
        }
        Set<Integer> vendors = Arrays.stream(vendorIds).boxed().collect(Collectors.toUnmodifiableSet());
        if (vendors.size() < vendorIds.length) {
            throw new IllegalArgumentException("a vendor id is given twice: " + Arrays.stream(vendorIds)
                    .mapToObj(id -> String.format("0x%04X", id)).collect(Collectors.joining(", ")));
        }
        return vendors;
    }

    private void demandFree(Set<Integer> vendors) {
        for (Set<Integer> taken : lists.keySet()) {
            vendors.stream().filter(taken::contains).findFirst().ifPresent(vendor -> {
                throw new IllegalArgumentException(
                        String.format("vendor id 0x%04X is in another list of this session", vendor));
            });
        }
    }

    /**
     * Looks at the devices of all vendors, once. To open one of them, ask for a {@link #list} of its vendor.
     *
     * @return what the information lines of the moment tell
     * @throws IllegalStateException when the session is closed
     * @throws UsbException          when the library cannot make the list
     */
    public List<UsbDeviceInfo> everything() throws UsbException {
        return raw.locked(() -> {
            int handle = Result.check("list all devices", raw.usb.usbCreateDeviceList(raw.id(), ALL_VENDORS));
            try {
                return raw.lines(handle).stream().map(UsbDeviceInfo::parse).toList();
            } finally {
                raw.usb.usbReleaseDeviceList(handle);
            }
        });
    }

    /**
     * Has a listener told which devices of the lists of this session come, leave and come back, from now on, lists that
     * are made later included. It is called on a thread of the session; apart from that as
     * {@link #onChange(Consumer, Executor)}.
     *
     * @param listener the listener
     * @return closes the subscription
     * @throws IllegalStateException when the session is closed
     */
    public UsbSubscription onChange(Consumer<? super UsbChange> listener) {
        return onChange(listener, raw.threads);
    }

    /**
     * The same, with the listener called by an executor, such as {@code SwingUtilities::invokeLater}.
     *
     * <p>The calls come one after another, in the order of the changes, each as a task of its own; so a slow listener
     * delays no other one. An exception of the listener goes to the log and to the handler of uncaught exceptions of
     * the thread, and the next call comes nevertheless. A listener may call any method, {@link #close} included.
     *
     * <p>The session looks at its lists twenty times a second for this, which costs next to nothing while nothing
     * changes. A device that was pulled and is back between two looks leaves and comes back for the listener, too, but
     * not when nobody else has looked meanwhile; if it was open, its transfers tell that it is gone. What a listener is
     * told has nothing to do with what {@link UsbDeviceList#update} returns.
     *
     * @param listener the listener
     * @param executor calls it
     * @return closes the subscription
     * @throws IllegalStateException when the session is closed
     */
    public UsbSubscription onChange(Consumer<? super UsbChange> listener, Executor executor) {
        return watch.add(listener, executor);
    }

    /**
     * Records what the devices of this session send and receive, from now on: of those that are open, and of those that
     * will be opened, first their descriptors, then every transfer. It works wherever the session does, and needs no
     * right that the session does not have.
     *
     * <p>The file is a capture as the Linux kernel's usbmon makes them (pcapng, link type 220): Wireshark opens it, and
     * {@code simbus-replay} makes simulated devices of it. It has everything that was transferred unless that is left
     * out, passwords included, and on systems with owners of files only its owner can read it. Buses and addresses in
     * it are invented. The two packets of a transfer are together, when it has ended.
     *
     * <p>Opening a device makes some requests for descriptors while a recording runs, each of a second at most. Apart
     * from that it changes no result. When the file cannot be written any more, such as on a full disk, the recording
     * ends: the log and {@link UsbRecording#close} tell it, no transfer does.
     *
     * @param file    is created; one that is there is replaced
     * @param leftOut what is left out of it; nothing unless it is given
     * @return ends the recording
     * @throws IllegalStateException when the session is closed, or is being recorded already
     * @throws IOException           when the file cannot be created
     */
    public UsbRecording record(Path file, Without... leftOut) throws IOException {
        List<Without> without = List.of(leftOut);
        return raw.locked(() -> {
            if (raw.usb.recorder() != null) {
                throw new IllegalStateException("the session is being recorded already");
            }
            Recorder recorder = new Recorder(file, without.contains(Without.SERIAL_NUMBERS),
                    without.contains(Without.DATA), this::tellEnd);
            lists.values().forEach(list -> list.describeOpen(recorder));
            raw.usb.begin(recorder);
            return new UsbRecording(raw.usb, recorder);
        });
    }

    /** On a thread that has no lock: a handler of the log may do anything. */
    private void tellEnd(IOException cause) {
        raw.threads.execute(() -> Log.warning("the recording ends here: " + cause.getMessage(), cause));
    }

    /**
     * Closes the devices, releases the lists and ends the session. Transfers of other threads end as with
     * {@link UsbDevice#close}, and it waits as long as that for each device. A recording ends. Listeners are not called
     * any more when it has returned, as {@link UsbSubscription#close} tells. Closing again does nothing.
     */
    @Override
    public void close() {
        raw.end(() -> {
            lists.values().forEach(UsbDeviceList::closeDevices);
            endRecording();
            lists.values().forEach(UsbDeviceList::release);
        });
        raw.listeners.awaitEnd();
        lists.values().forEach(UsbDeviceList::awaitListeners);
    }

    private void endRecording() {
        Recorder recorder = raw.usb.recorder();
        if (recorder != null) {
            try {
                recorder.close();
            } catch (IOException e) {
                // It had to end early: the log has told that, and the recording does.
            }
        }
    }

    @Override
    public String toString() {
        return raw.isOpen() ? "session" : "session, closed";
    }
}
