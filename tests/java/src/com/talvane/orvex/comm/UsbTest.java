package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;
import java.util.function.BooleanSupplier;
import java.util.stream.IntStream;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.Timeout.ThreadMode;

/**
 * A test on a bus. Each starts from the scenario; what it opened is given back at its end, and then nothing may have
 * been wrong in the library's calls of libusb.
 *
 * <p>Tests with the tag "memory" make libusb fail or count its calls, which only the bus in memory can do, or would
 * take long on an emulated machine and show nothing new there. Those with the tag "kernel" need one.
 */
@Timeout(value = 300, threadMode = ThreadMode.SEPARATE_THREAD)
public abstract class UsbTest {
    protected static final int VENDOR = 0x6A5C;
    protected static final int OTHER_VENDOR = 0x6A5D;
    static final int ANY_VENDOR = -1;

    private static final long DEADLINE_SECONDS = 60;
    private static final ExecutorService THREADS = Executors.newCachedThreadPool(task -> {
        Thread thread = new Thread(task);
        thread.setDaemon(true);
        return thread;
    });

    final ORVEXCommUSBAccess usb = new ORVEXCommUSBAccess();
    protected final Bus bus = Bus.connect();
    private final List<Integer> lists = new ArrayList<>();
    private final List<Device> opened = new ArrayList<>();

    @BeforeEach
    final void startFromTheScenario() {
        bus.reset();
    }

    @AfterEach
    final void giveEverythingBack() {
        opened.forEach(Device::close);
        lists.forEach(usb::usbReleaseDeviceList);
        usb.usbRelease(0);
        try (bus) {
            if (bus.isMemory()) {
                assertEquals(List.of(), bus.violations(), "wrong calls of libusb");
            }
        }
    }

    /** Opens the session when the host sees the devices: a kernel may lag behind the bus. */
    final void openSession() {
        await("the host sees the devices that are plugged in", () -> {
            assertEquals(0, usb.usbInitialize());
            int all = usb.usbCreateDeviceList(0, ANY_VENDOR);
            boolean settled = ownSerials(all).equals(bus.pluggedSerials());
            usb.usbReleaseDeviceList(all);
            if (!settled) {
                usb.usbRelease(0);
            }
            return settled;
        });
    }

    private List<String> ownSerials(int list) {
        return devices(list).stream()
                .filter(d -> d.field(2).startsWith("6A5") || d.field(2).equals("1209"))
                .filter(d -> !d.field(10).equals("2") && !d.field(7).equals("?"))
                .map(d -> d.field(7))
                .sorted()
                .toList();
    }

    /** A list of the session that is open. */
    final int list(int... vendors) {
        int list = usb.usbCreateDeviceList2(0, vendors);
        assertTrue(list >= 0, () -> "list handle " + list);
        lists.add(list);
        return list;
    }

    /** A list from the single-vendor call. */
    final int singleList(int vendor) {
        int list = usb.usbCreateDeviceList(0, vendor);
        assertTrue(list >= 0, () -> "list handle " + list);
        lists.add(list);
        return list;
    }

    /** Opens a session and the list of both vendors in it. */
    final int sessionWithList() {
        openSession();
        return list(VENDOR, OTHER_VENDOR);
    }

    final List<Device> devices(int list) {
        return IntStream.range(0, usb.usbGetDeviceListCount(list)).mapToObj(i -> new Device(usb, list, i)).toList();
    }

    /** The device of a list with this serial number; the first when there are several. */
    final Device find(int list, String serial) {
        return devices(list).stream()
                .filter(d -> d.field(7).equals(serial))
                .findFirst()
                .orElseThrow(() -> new AssertionError("no " + serial + " in " + lines(list)));
    }

    final List<String> lines(int list) {
        return devices(list).stream().map(Device::line).toList();
    }

    /** Opens a device and remembers to close it. */
    final Device open(Device device) {
        assertEquals(0, device.open(), "open");
        return closeAtTheEnd(device);
    }

    final Device closeAtTheEnd(Device device) {
        opened.add(device);
        return device;
    }

    /** A session with a list and this device of it open. */
    final Device open(String serial) {
        return open(find(sessionWithList(), serial));
    }

    /** The tool with an endpoint of every kind, open. */
    final Device openBench() {
        return open("BENCH00001");
    }

    /** Updates a list until it is as expected: a change may take a moment to arrive. */
    final void updateUntil(String expected, int list, BooleanSupplier condition) {
        await(expected, () -> {
            assertEquals(0, usb.usbUpdateDeviceList(list, 0));
            return condition.getAsBoolean();
        });
    }

    final void updateUntilPresent(Device device, boolean present) {
        updateUntil(device.line() + " gets presence " + present, device.list(), () -> device.isPresent() == present);
    }

    /** Runs a blocking call on a separate thread, and returns when its transfer waits at the endpoint. */
    protected final Future<Integer> whileWaiting(String id, int endpoint, Callable<Integer> call) {
        Future<Integer> result = THREADS.submit(call);
        await("a transfer waits at endpoint " + endpoint, () -> bus.pending(id, endpoint) > 0);
        return result;
    }

    protected static Future<Integer> onAnotherThread(Callable<Integer> call) {
        return THREADS.submit(call);
    }

    protected static int result(Future<Integer> call) throws Exception {
        return call.get(DEADLINE_SECONDS, TimeUnit.SECONDS);
    }

    protected static void await(String what, BooleanSupplier condition) {
        long deadline = System.nanoTime() + TimeUnit.SECONDS.toNanos(DEADLINE_SECONDS);
        while (!condition.getAsBoolean()) {
            assertTrue(System.nanoTime() < deadline, () -> "waited in vain: " + what);
            pause();
        }
    }

    private static void pause() {
        try {
            TimeUnit.MILLISECONDS.sleep(2);
        } catch (InterruptedException e) {
            throw new IllegalStateException(e);
        }
    }

    /** Bytes that differ from their neighbours and from zero. */
    protected static byte[] pattern(int size) {
        byte[] bytes = new byte[size];
        for (int i = 0; i < size; i++) {
            bytes[i] = (byte) (i % 251 + 1);
        }
        return bytes;
    }
}
