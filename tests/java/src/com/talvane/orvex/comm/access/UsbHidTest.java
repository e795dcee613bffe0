package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.UsbAccessCode;
import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.util.Arrays;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.Future;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicReference;
import java.util.concurrent.locks.LockSupport;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** HID devices in the safe layer. */
class UsbHidTest extends AccessTest {
    private static final int BRIEF = 100;

    /** The HID tool, open: its driver may not be ready at once. */
    private UsbDevice opened() throws UsbException {
        UsbDevice hid = pluggedHid();
        await("it opens", () -> {
            try {
                return hid.open().isOpen();
            } catch (UsbException e) {
                return false;
            }
        });
        return hid;
    }

    private static int readReports(UsbDevice hid, byte[] buffer, int timeout) throws UsbException {
        return hid.readReports(buffer, 0, buffer.length, timeout);
    }

    @Test
    void reportsGoOutAndComeBack() throws UsbException {
        UsbDevice hid = opened();
        byte[] out = pattern(200);
        assertEquals(130, hid.writeReports(out, 10, 130, AMPLE));
        byte[] in = new byte[200];
        assertEquals(130, hid.readReports(in, 20, 130, AMPLE));
        byte[] expected = new byte[200];
        System.arraycopy(out, 10, expected, 20, 130);
        assertArrayEquals(expected, in);
        assertEquals(0, hid.writeReports(out, 200, 0, AMPLE));
        assertEquals(0, hid.readReports(in, 200, 0, AMPLE));
    }

    @Test
    void theReportsThatCameBeforeTheTimeRanOutAreKept() throws UsbException {
        UsbDevice hid = opened();
        assertEquals(128, hid.writeReports(pattern(128), 0, 128, AMPLE));
        assertEquals(64, readReports(hid, new byte[64], AMPLE));
        assertEquals(64, readReports(hid, new byte[200], EXPIRING));
        assertThrows(UsbTimeoutException.class, () -> readReports(hid, new byte[64], BRIEF));
    }

    @Test
    void pipesAreRefused() throws UsbException {
        UsbDevice hid = opened();
        byte[] bytes = new byte[1];
        assertEquals("HIDT0021 is a HID device: it has reports, not pipes",
                assertThrows(UnsupportedOperationException.class, () -> read(hid, 0x81, bytes)).getMessage());
        assertThrows(UnsupportedOperationException.class, () -> write(hid, 0x01, bytes));
        assertThrows(UnsupportedOperationException.class, () -> hid.readInterrupt(0x81, bytes, 0, 1, AMPLE));
        assertThrows(UnsupportedOperationException.class, () -> hid.writeInterrupt(0x01, bytes, 0, 1, AMPLE));
        assertThrows(UnsupportedOperationException.class, () -> hid.readControl(0xC0, 1, 0, 0, 1, AMPLE));
        assertThrows(UnsupportedOperationException.class, () -> hid.writeControl(0x40, 1, 0, 0, bytes, AMPLE));
        assertThrows(UnsupportedOperationException.class, hid::reset);
    }

    @Test
    void whatCannotBeIsRefused() throws UsbException {
        UsbDevice hid = opened();
        byte[] bytes = new byte[64];
        assertThrows(IndexOutOfBoundsException.class, () -> hid.readReports(bytes, 1, 64, AMPLE));
        assertThrows(IndexOutOfBoundsException.class, () -> hid.writeReports(bytes, -1, 64, AMPLE));
        assertThrows(IllegalArgumentException.class, () -> hid.readReports(bytes, 0, 64, -1));
        assertThrows(IllegalArgumentException.class, () -> hid.writeReports(bytes, 0, 64, UsbDevice.FOREVER));
        hid.close();
        assertThrows(IllegalArgumentException.class, () -> hid.openReports(63, 0));
        assertThrows(IllegalArgumentException.class, () -> hid.openReports(1025, 0));
        assertThrows(IllegalStateException.class, () -> readReports(hid, bytes, AMPLE));
        assertThrows(IllegalStateException.class, () -> hid.writeReports(bytes, 0, 64, AMPLE));
    }

    @Test
    @Tag("memory")
    void reportsHaveTheSizeOfTheOpening() throws UsbException {
        UsbDevice hid = pluggedHid();
        try (UsbDevice open = hid.openReports(128, 0x77)) {
            assertEquals(128, open.reportSize());
            assertEquals(130, open.writeReports(pattern(130), 0, 130, AMPLE));
            assertEquals(2, bus.received("hid", 0x01).size());
            byte[] last = bus.received("hid", 0x01).get(1);
            assertEquals(128, last.length);
            assertEquals(0x77, last[127]);
        }
        hid.open();
        assertEquals(1, hid.writeReports(pattern(1), 0, 1, AMPLE));
        assertEquals(64, bus.received("hid", 0x01).get(2).length);
    }

    @Test
    @Tag("memory")
    void theMakersSecondVendorHasLargeReports() throws UsbException {
        bus.change("hid", "{\"vendorId\": \"0x6A5D\", \"interfaces\": [{\"hid\": {\"input\": 512, \"output\": 512},"
                + " \"endpoints\": [{\"address\": \"0x81\", \"type\": \"interrupt\", \"interval\": 1},"
                + " {\"address\": \"0x01\", \"type\": \"interrupt\", \"interval\": 1, \"behaviour\": \"sink\"}]}]}");
        UsbDevice hid = pluggedHid();
        assertEquals(512, hid.reportSize());
        hid.open();
        assertEquals(512, hid.reportSize());
        bus.feed("hid", 0x81, pattern(512));
        byte[] report = new byte[512];
        assertEquals(512, readReports(hid, report, AMPLE));
        assertArrayEquals(pattern(512), report);
        assertEquals(3, hid.writeReports(pattern(3), 0, 3, AMPLE));
        byte[] sent = bus.received("hid", 0x01).get(0);
        assertArrayEquals(Arrays.copyOf(pattern(3), 512), sent);
    }

    @Test
    void theSizeOfReportsIsThatOfTheOpening() throws UsbException {
        UsbDevice hid = pluggedHid();
        assertEquals(64, hid.reportSize());
        assertThrows(UnsupportedOperationException.class, () -> device(BENCH).reportSize());
    }

    /** A read without an end by time, on a thread that has begun with it. */
    private static Future<Integer> startedRead(UsbDevice hid, byte[] buffer) throws InterruptedException {
        CountDownLatch started = new CountDownLatch(1);
        Future<Integer> read = onAnotherThread(() -> {
            started.countDown();
            return readReports(hid, buffer, UsbDevice.FOREVER);
        });
        started.await();
        return read;
    }

    @Test
    void aReadThatWaitsSleepsAndGetsItsReport() throws Exception {
        UsbDevice hid = opened();
        AtomicReference<Thread> reader = new AtomicReference<>();
        byte[] got = new byte[64];
        Future<Integer> read = onAnotherThread(() -> {
            reader.set(Thread.currentThread());
            return readReports(hid, got, UsbDevice.FOREVER);
        });
        await("the read sleeps", () -> reader.get() != null
                && LockSupport.getBlocker(reader.get()) instanceof ReportPauses);
        assertEquals(64, hid.writeReports(pattern(64), 0, 64, AMPLE));
        assertEquals(64, result(read));
        assertArrayEquals(pattern(64), got);
    }

    /** Today a tenth; a whole core when it does not sleep. */
    @Test
    @Tag("memory")
    void aReadThatWaitsLeavesMostOfTheProcessorToOthers() throws UsbException {
        UsbDevice hid = opened();
        assertThrows(UsbTimeoutException.class, () -> readReports(hid, new byte[64], BRIEF));
        ThreadMXBean threads = ManagementFactory.getThreadMXBean();
        long before = threads.getCurrentThreadCpuTime();
        assertThrows(UsbTimeoutException.class, () -> readReports(hid, new byte[64], 10 * BRIEF));
        long usedMs = TimeUnit.NANOSECONDS.toMillis(threads.getCurrentThreadCpuTime() - before);
        assertTrue(usedMs < 3 * BRIEF, () -> usedMs + " ms");
    }

    @Test
    void aCloseEndsAReadOfAnotherThread() throws Exception {
        UsbDevice hid = opened();
        Future<Integer> read = startedRead(hid, new byte[64]);
        hid.close();
        failure(IllegalStateException.class, read);
        hid.open();
    }

    @Test
    void aReadGoesOnBesideAnOpenElsewhere() throws Exception {
        UsbDevice hid = opened();
        byte[] got = new byte[64];
        Future<Integer> read = startedRead(hid, got);
        device(PAIR).open();
        assertEquals(64, hid.writeReports(pattern(64), 0, 64, AMPLE));
        assertEquals(64, result(read));
        assertArrayEquals(pattern(64), got);
    }

    @Test
    void aReadOfADeviceThatIsPulledTellsThatItIsGone() throws Exception {
        UsbDevice hid = opened();
        Future<Integer> read = startedRead(hid, new byte[64]);
        bus.unplug("hid");
        failure(UsbDeviceGoneException.class, read);
        assertThrows(UsbDeviceGoneException.class, () -> hid.writeReports(new byte[1], 0, 1, AMPLE));
        hid.close();
    }

    @Test
    @Tag("memory")
    void aDriverThatRefusesIsTold() throws UsbException {
        UsbDevice hid = pluggedHid();
        bus.fail("hid open", 1, -1);
        bus.fail("hid open", 2, -1);
        assertEquals(UsbAccessCode.OPEN_FAILED, assertThrows(UsbException.class, hid::open).code());
        assertFalse(hid.isOpen());
        hid.open();
    }

    @Test
    void aListenerGetsEachReport() throws Exception {
        UsbDevice hid = opened();
        BlockingQueue<byte[]> reports = new LinkedBlockingQueue<>();
        UsbSubscription subscription = hid.onReport(reports::add);
        assertEquals(128, hid.writeReports(pattern(128), 0, 128, AMPLE));
        assertArrayEquals(Arrays.copyOf(pattern(128), 64), reports.poll(AMPLE, TimeUnit.MILLISECONDS));
        assertArrayEquals(Arrays.copyOfRange(pattern(128), 64, 128), reports.poll(AMPLE, TimeUnit.MILLISECONDS));
        assertThrows(IllegalStateException.class, () -> readReports(hid, new byte[64], AMPLE));
        assertThrows(UnsupportedOperationException.class, () -> hid.onData(0x81, 64, reports::add));
        subscription.close();
        hid.onReport(reports::add);
        hid.close();
        assertThrows(IllegalStateException.class, () -> hid.onReport(reports::add));
    }

    @Test
    void aPulledDeviceEndsItsListener() throws Exception {
        UsbDevice hid = opened();
        BlockingQueue<UsbException> ends = new LinkedBlockingQueue<>();
        hid.onReport(new UsbInputListener() {
            @Override
            public void received(byte[] bytes) {
            }

            @Override
            public void ended(UsbException cause) {
                ends.add(cause);
            }
        });
        bus.unplug("hid");
        assertInstanceOf(UsbDeviceGoneException.class, ends.poll(AMPLE, TimeUnit.MILLISECONDS));
        hid.close();
    }

    @Test
    void anInterruptEndsAReadThatSleeps() throws Exception {
        UsbDevice hid = opened();
        AtomicReference<Thread> reader = new AtomicReference<>();
        Future<Integer> moved = onAnotherThread(() -> {
            reader.set(Thread.currentThread());
            UsbInterruptedException e = assertThrows(UsbInterruptedException.class,
                    () -> readReports(hid, new byte[100], UsbDevice.FOREVER));
            assertTrue(Thread.interrupted());
            return e.moved();
        });
        assertEquals(64, hid.writeReports(pattern(64), 0, 64, AMPLE));
        await("the read has the report and sleeps", () -> reader.get() != null
                && LockSupport.getBlocker(reader.get()) instanceof ReportPauses);
        reader.get().interrupt();
        assertEquals(64, result(moved));
    }

    @Test
    void anInterruptedThreadWritesNoReport() throws Exception {
        UsbDevice hid = opened();
        Thread.currentThread().interrupt();
        UsbInterruptedException e = assertThrows(UsbInterruptedException.class,
                () -> hid.writeReports(pattern(128), 0, 128, AMPLE));
        assertTrue(Thread.interrupted());
        assertEquals(0, e.moved());
    }

    @Test
    @Tag("memory")
    void howManyReportsHadGoneBeforeOneFailedIsTold() throws UsbException {
        UsbDevice hid = opened();
        bus.fail("hid write", 3, -1);
        UsbException failure =
                assertThrows(UsbException.class, () -> hid.writeReports(pattern(200), 0, 200, AMPLE));
        assertEquals(UsbAccessCode.WRITE_FAILED, failure.code());
        assertEquals(128, failure.moved());
    }
}
