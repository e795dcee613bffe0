package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertThrows;

import com.talvane.orvex.comm.UsbTest;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.Callable;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterEach;

/** A test on a session of the safe layer, which is closed at its end. */
abstract class AccessTest extends UsbTest {
    /** A time-out in milliseconds that no successful transfer reaches. */
    static final int AMPLE = 30_000;
    /** A time-out in milliseconds for a call that is to time out, but only after something else has happened. */
    static final int EXPIRING = 2_000;
    static final String BENCH = "BENCH00001";
    static final String HID = "HIDT0021";
    static final String PAIR = "PAIR0002";

    private UsbSession session;

    @AfterEach
    final void closeSession() {
        if (session != null) {
            session.close();
        }
    }

    /** The session, in which the host sees what is plugged in. */
    final UsbSession session() throws UsbException {
        if (session == null) {
            session = UsbSession.open();
            await("the host sees the devices that are plugged in", () -> unchecked(() -> session.everything().stream()
                    .map(UsbDeviceInfo::serial).toList().containsAll(bus.pluggedSerials())));
        }
        return session;
    }

    final UsbDeviceList list() throws UsbException {
        return session().list(VENDOR, OTHER_VENDOR);
    }

    final UsbDevice device(String serial) throws UsbException {
        return list().find(serial).orElseThrow();
    }

    final UsbDevice open(String serial) throws UsbException {
        return device(serial).open();
    }

    /** The HID tool, closed, once the host's HID driver has it. */
    final UsbDevice pluggedHid() throws UsbException {
        bus.plug("hid");
        await("the HID driver has the tool", () -> unchecked(() -> session().everything().stream()
                .anyMatch(info -> info.serial().equals(HID) && info.isHid())));
        return device(HID);
    }

    /** What comes next in the queue, which something does soon. */
    static <T> T next(BlockingQueue<T> queue) throws InterruptedException {
        T item = queue.poll(AMPLE, TimeUnit.MILLISECONDS);
        if (item == null) {
            throw new AssertionError("nothing came");
        }
        return item;
    }

    static int read(UsbDevice device, int endpoint, byte[] buffer) throws UsbException {
        return device.readBulk(endpoint, buffer, 0, buffer.length, UsbDevice.FOREVER);
    }

    static int write(UsbDevice device, int endpoint, byte[] bytes) throws UsbException {
        return device.writeBulk(endpoint, bytes, 0, bytes.length, AMPLE);
    }

    /** What a call on another thread ended with. */
    static <T extends Throwable> T failure(Class<T> type, Future<Integer> call) {
        return assertThrows(type, () -> {
            try {
                result(call);
            } catch (ExecutionException e) {
                throw e.getCause();
            }
        });
    }

    static <T> T unchecked(Callable<T> call) {
        try {
            return call.call();
        } catch (Exception e) {
            throw new AssertionError(e);
        }
    }

    static List<String> serials(List<UsbDevice> devices) {
        return devices.stream().map(device -> device.info().serial()).toList();
    }
}
