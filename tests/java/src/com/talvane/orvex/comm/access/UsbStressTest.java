package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Future;
import java.util.concurrent.Semaphore;
import java.util.concurrent.atomic.AtomicBoolean;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.Timeout.ThreadMode;

/**
 * Transfers on four devices, each with a thread that writes and one that reads, while two other devices open and close
 * again and again. How many is set by the system property "orvex.test.stressTransfers"; without it they are few, and
 * fewer on a kernel.
 */
@Timeout(value = 24 * 3600, threadMode = ThreadMode.SEPARATE_THREAD)
class UsbStressTest extends AccessTest {
    private static final int PACKET = 64;
    /** How many bytes a writer may be ahead of its reader. */
    private static final int LEAD = 1024;

    private final AtomicBoolean isOver = new AtomicBoolean();

    /** The bytes that a writer sends and its reader expects, from the first on. */
    private static byte byteAt(long place) {
        return (byte) ((place * 0x9E3779B97F4A7C15L) >>> 56);
    }

    /** All lengths from 1 to a full packet, in a row that repeats. */
    private static int lengthOf(int number) {
        return 1 + number % PACKET;
    }

    private static int writeMany(UsbDevice device, int count, Semaphore lead) throws Exception {
        long place = 0;
        for (int i = 0; i < count; i++) {
            byte[] bytes = new byte[lengthOf(i)];
            for (int j = 0; j < bytes.length; j++) {
                bytes[j] = byteAt(place++);
            }
            lead.acquire(bytes.length);
            assertEquals(bytes.length, write(device, 0x01, bytes));
        }
        return count;
    }

    /** Returns the number of reads; a packet that is not full ends each. */
    private static int readMany(UsbDevice device, int count, Semaphore lead) throws Exception {
        long all = 0;
        for (int i = 0; i < count; i++) {
            all += lengthOf(i);
        }
        byte[] buffer = new byte[8 * PACKET];
        int reads = 0;
        for (long place = 0; place < all; reads++) {
            int length = device.readBulk(0x81, buffer, 0, buffer.length, AMPLE);
            assertTrue(length > 0, "an empty read");
            for (int i = 0; i < length; i++, place++) {
                assertEquals(byteAt(place), buffer[i], "byte " + place);
            }
            lead.release(length);
        }
        return reads;
    }

    private int openAndClose(UsbDevice device) throws UsbException {
        int times = 0;
        for (; !isOver.get(); times++) {
            try (UsbDevice open = device.open()) {
                assertEquals(3, write(open, 0x01, pattern(3)));
                assertEquals(3, read(open, 0x81, new byte[PACKET]));
            }
        }
        return times;
    }

    private UsbDevice pluggedIn(String id, String serial) throws UsbException {
        bus.plug(id);
        await(id + " is listed", () -> unchecked(() -> {
            list().update();
            return list().find(serial).isPresent();
        }));
        bus.endpoint(id, 0x01, "{\"record\": false}");
        return device(serial);
    }

    @Test
    void opensAndClosesElsewhereHarmNoTransfer() throws Exception {
        List<UsbDevice> opened = List.of(pluggedIn("settings", "SETT0018"), pluggedIn("dual", "DUAL0020"));
        List<UsbDevice> working =
                List.of(open(BENCH), open(PAIR), open("COMP0003"), pluggedIn("spare", "SPARE005").open());
        int count = Integer.getInteger("orvex.test.stressTransfers", bus.isMemory() ? 16_000 : 1_000)
                / (2 * working.size());
        Future<Integer> waiting = whileWaiting("bench", 0x84, () -> read(working.get(0), 0x84, new byte[PACKET]));
        if (bus.isMemory()) {
            bus.clearCalls();
        }
        List<Future<Integer>> transfers = new ArrayList<>();
        for (UsbDevice device : working) {
            Semaphore lead = new Semaphore(LEAD);
            transfers.add(onAnotherThread(() -> writeMany(device, count, lead)));
            transfers.add(onAnotherThread(() -> readMany(device, count, lead)));
        }
        List<Future<Integer>> openings = opened.stream()
                .map(device -> onAnotherThread(() -> openAndClose(device))).toList();
        try {
            for (Future<Integer> each : transfers) {
                assertTrue(each.get() > 0);
            }
        } finally {
            isOver.set(true);
        }
        for (Future<Integer> each : openings) {
            assertTrue(result(each) > 0);
        }
        assertEquals(1, bus.pending("bench", 0x84));
        if (bus.isMemory()) {
            assertEquals(0, bus.calls("libusb_cancel_transfer"));
        }
        working.get(0).close();
        failure(IllegalStateException.class, waiting);
    }
}
