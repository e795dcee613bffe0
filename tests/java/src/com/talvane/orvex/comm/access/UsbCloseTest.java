package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import com.talvane.orvex.comm.UsbAccessCode;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.Future;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** Opens, closes and resets beside transfers of other threads. */
class UsbCloseTest extends AccessTest {
    private static final int NOT_OPEN = UsbAccessCode.NOT_OPEN.code();

    @Test
    void closingAgainDoesNothingAndADeviceOpensAgain() throws UsbException {
        UsbDevice bench = device(BENCH);
        bench.close();
        for (int i = 0; i < 3; i++) {
            try (UsbDevice open = bench.open()) {
                assertTrue(open.isOpen());
                assertThrows(IllegalStateException.class, bench::open);
                assertEquals(1, write(bench, 0x01, new byte[1]));
            }
            bench.close();
            assertFalse(bench.isOpen());
        }
    }

    @Test
    void aClosedDeviceHasNoTransfers() throws UsbException {
        UsbDevice bench = device(BENCH);
        byte[] bytes = new byte[1];
        assertThrows(IllegalStateException.class, () -> read(bench, 0x81, bytes));
        assertThrows(IllegalStateException.class, () -> write(bench, 0x01, bytes));
        assertThrows(IllegalStateException.class, () -> bench.readInterrupt(0x82, bytes, 0, 1, AMPLE));
        assertThrows(IllegalStateException.class, () -> bench.writeInterrupt(0x02, bytes, 0, 1, AMPLE));
        assertThrows(IllegalStateException.class, () -> bench.readControl(0xC0, 1, 0, 0, 1, AMPLE));
        assertThrows(IllegalStateException.class, () -> bench.writeControl(0x40, 1, 0, 0, bytes, AMPLE));
        assertThrows(IllegalStateException.class, bench::reset);
    }

    @Test
    void whatReportsAreForIsRefusedByOtherDevices() throws UsbException {
        UsbDevice bench = open(BENCH);
        assertThrows(UnsupportedOperationException.class, () -> bench.readReports(new byte[1], 0, 1, AMPLE));
        assertThrows(UnsupportedOperationException.class, () -> bench.writeReports(new byte[1], 0, 1, AMPLE));
        bench.close();
        assertEquals("BENCH00001 is not a HID device",
                assertThrows(UnsupportedOperationException.class, () -> bench.openReports(64, 0)).getMessage());
    }

    @Test
    void aCloseEndsWhatOtherThreadsWaitFor() throws Exception {
        UsbDevice bench = open(BENCH);
        List<Future<Integer>> waiting = List.of(
                whileWaiting("bench", 0x84, () -> read(bench, 0x84, new byte[64])),
                whileWaiting("bench", 0x04, () -> write(bench, 0x04, new byte[64])));
        Future<Integer> queued = onAnotherThread(() -> read(bench, 0x84, new byte[64]));
        bench.close();
        for (Future<Integer> transfer : waiting) {
            failure(IllegalStateException.class, transfer);
        }
        failure(IllegalStateException.class, queued);
        assertEquals(1, write(bench.open(), 0x01, new byte[1]));
    }

    @Test
    void whatWaitsForItsTurnOfAnEarlierOpeningDoesNotStartInALaterOne() throws UsbException {
        UsbDevice bench = device(BENCH);
        Connection earlier = new Connection(
                session().raw.usb, ((ListedDevice) bench).target(), new Connection.ReportFormat(64, 0), Map.of());
        earlier.open();
        earlier.end();
        earlier.close();
        bench.open();
        byte[] bytes = new byte[1];
        assertEquals(NOT_OPEN, earlier.write(ORVEXCommUSBAccess::usbWriteBulkPipe, 0x01, AMPLE, bytes));
        assertEquals(NOT_OPEN, earlier.read(ORVEXCommUSBAccess::usbReadBulkPipe, 0x81, AMPLE, bytes));
        assertEquals(List.of(), bus.received("bench", 0x01));
        assertEquals(1, write(bench, 0x01, bytes));
    }

    @Test
    void theEndOfTheSessionEndsWhatOtherThreadsWaitFor() throws Exception {
        UsbDevice bench = open(BENCH);
        UsbDevice pair = open(PAIR);
        Future<Integer> read = whileWaiting("bench", 0x84, () -> read(bench, 0x84, new byte[64]));
        Future<Integer> other = whileWaiting("pair", 0x81, () -> read(pair, 0x81, new byte[64]));
        closeSession();
        failure(IllegalStateException.class, read);
        failure(IllegalStateException.class, other);
    }

    @Test
    void aRawCallThatIsLateDoesNotReachALaterOpening() throws Exception {
        UsbDevice bench = open(BENCH);
        Connection earlier = ((ListedDevice) bench).connection();
        CountDownLatch hasBegun = new CountDownLatch(1);
        CountDownLatch mayGoOn = new CountDownLatch(1);
        Connection.RawCall lateWrite = (usb, list, index, endpoint, length, timeout, bytes) -> {
            hasBegun.countDown();
            unchecked(() -> mayGoOn.await(AMPLE, TimeUnit.MILLISECONDS));
            return usb.usbWriteBulkPipe(list, index, endpoint, length, timeout, bytes);
        };
        Future<Integer> late = onAnotherThread(() -> earlier.write(lateWrite, 0x01, AMPLE, new byte[1]));
        hasBegun.await();
        bench.close();
        UsbException refused = assertThrows(UsbException.class, bench::open);
        assertEquals(UsbAccessCode.OPEN_FAILED, refused.code());
        assertFalse(bench.isOpen());
        mayGoOn.countDown();
        bench.open();
        assertTrue(result(late) < 0);
        assertEquals(List.of(), bus.received("bench", 0x01));
    }

    @Test
    void anOpenAndACloseElsewhereTouchNoTransfer() throws Exception {
        UsbDevice bench = open(BENCH);
        UsbDevice pair = device(PAIR);
        byte[] buffer = new byte[64];
        Future<Integer> read = whileWaiting("bench", 0x81, () -> read(bench, 0x81, buffer));
        List<Future<Integer>> others = List.of(
                whileWaiting("bench", 0x84, () -> read(bench, 0x84, new byte[64])),
                whileWaiting("bench", 0x04, () -> write(bench, 0x04, new byte[64])),
                whileWaiting("bench", 0x00, () -> bench.readControl(0xC0, 4, 0, 0, 1, AMPLE).length));
        if (bus.isMemory()) {
            bus.clearCalls();
        }
        for (int i = 0; i < 10; i++) {
            pair.open().close();
        }
        if (bus.isMemory()) {
            assertEquals(0, bus.calls("libusb_cancel_transfer"));
        }
        bus.feed("bench", 0x81, pattern(9));
        assertEquals(9, result(read));
        assertArrayEquals(Arrays.copyOf(pattern(9), 64), buffer);
        for (Future<Integer> other : others) {
            assertFalse(other.isDone());
        }
        bench.close();
        for (Future<Integer> other : others) {
            failure(IllegalStateException.class, other);
        }
    }

    @Test
    @Tag("memory")
    void whatAReadHadGotIsReturnedAtAReset() throws Exception {
        bus.endpoint("bench", 0x84, "{\"limit\": 64}");
        UsbDevice bench = open(BENCH);
        byte[] buffer = new byte[200];
        Future<Integer> read = whileWaiting("bench", 0x84, () -> read(bench, 0x84, buffer));
        bus.clearCalls();
        bench.reset();
        assertTrue(bus.calls("libusb_cancel_transfer") > 0, "the reset began beside a read");
        assertEquals(64, result(read));
        for (int i = 0; i < 64; i++) {
            assertEquals((byte) i, buffer[i]);
        }
    }

    @Test
    void aResetLetsReadsGoOn() throws Exception {
        UsbDevice bench = open(BENCH);
        Future<Integer> read = whileWaiting("bench", 0x81, () -> read(bench, 0x81, new byte[64]));
        bench.reset();
        await("the read goes on", () -> bus.pending("bench", 0x81) > 0);
        bus.feed("bench", 0x81, pattern(4));
        assertEquals(4, result(read));
    }

    @Test
    void aResetLetsAListenerGoOn() throws Exception {
        UsbDevice bench = open(BENCH);
        BlockingQueue<byte[]> heard = new LinkedBlockingQueue<>();
        bench.onData(0x81, 64, heard::add);
        await("the listener waits", () -> bus.pending("bench", 0x81) > 0);
        bench.reset();
        bus.feed("bench", 0x81, pattern(4));
        assertArrayEquals(pattern(4), heard.poll(AMPLE, TimeUnit.MILLISECONDS));
    }

    @Test
    void theTimeOutOfAReadCountsOnAfterAReset() throws Exception {
        UsbDevice bench = open(BENCH);
        Future<Integer> read =
                whileWaiting("bench", 0x84, () -> bench.readBulk(0x84, new byte[64], 0, 64, EXPIRING));
        await("the time is over", () -> unchecked(() -> {
            bench.reset();
            return read.isDone();
        }));
        failure(UsbTimeoutException.class, read);
    }

    @Test
    void aResetWaitsForAWriteAndLeavesOtherDevicesAlone() throws Exception {
        UsbDevice bench = open(BENCH);
        UsbDevice pair = open(PAIR);
        Future<Integer> other = whileWaiting("pair", 0x81, () -> read(pair, 0x81, new byte[64]));
        Future<Integer> write =
                whileWaiting("bench", 0x04, () -> bench.writeBulk(0x04, new byte[64], 0, 64, EXPIRING));
        if (bus.isMemory()) {
            bus.clearCalls();
        }
        bench.reset();
        if (bus.isMemory()) {
            assertEquals(1, bus.calls("libusb_reset_device"));
            assertEquals(0, bus.calls("libusb_cancel_transfer"));
        }
        failure(UsbTimeoutException.class, write);
        assertEquals(3, write(pair, 0x01, pattern(3)));
        assertEquals(3, result(other));
    }

    @Test
    @Tag("memory")
    void whoeverHasADeviceIsTold() throws UsbException {
        UsbDevice bench = device(BENCH);
        bus.failNext("libusb_claim_interface", -6);
        assertEquals(UsbAccessCode.CLAIM_FAILED, assertThrows(UsbBusyException.class, bench::open).code());
        bus.failNext("libusb_open", -3);
        UsbException refused = assertThrows(UsbException.class, bench::open);
        assertEquals(UsbAccessCode.OPEN_FAILED, refused.code());
        assertEquals("open BENCH00001", refused.attempted());
        assertFalse(bench.isOpen());
        bench.open();
    }

    @Test
    void devicesOpenAndCloseWhileOthersWork() throws Exception {
        UsbDevice bench = open(BENCH);
        UsbDevice pair = device(PAIR);
        List<Future<Integer>> echoes = new ArrayList<>();
        for (int endpoint : new int[] {0x01, 0x02}) {
            echoes.add(onAnotherThread(() -> echoMany(bench, endpoint)));
        }
        echoes.add(onAnotherThread(() -> {
            for (int i = 0; i < 20; i++) {
                list().update();
                assertThrows(UsbStalledException.class, () -> bench.readControl(0xC0, 3, 0, 0, 2, AMPLE));
            }
            return 0;
        }));
        for (int i = 0; i < 20; i++) {
            try (UsbDevice open = pair.open()) {
                assertEquals(3, write(open, 0x01, pattern(3)));
                assertEquals(3, read(open, 0x81, new byte[64]));
            }
        }
        for (Future<Integer> echo : echoes) {
            assertEquals(0, result(echo));
        }
    }

    private static int echoMany(UsbDevice device, int endpoint) throws UsbException {
        byte[] buffer = new byte[64];
        for (int i = 0; i < 100; i++) {
            byte[] sent = pattern(1 + i % 63);
            boolean bulk = endpoint == 0x01;
            assertEquals(sent.length, bulk
                    ? write(device, endpoint, sent)
                    : device.writeInterrupt(endpoint, sent, 0, sent.length, AMPLE));
            assertEquals(sent.length, bulk
                    ? read(device, endpoint | 0x80, buffer)
                    : device.readInterrupt(endpoint | 0x80, buffer, 0, 64, AMPLE));
            assertArrayEquals(sent, Arrays.copyOf(buffer, sent.length));
        }
        return 0;
    }
}
