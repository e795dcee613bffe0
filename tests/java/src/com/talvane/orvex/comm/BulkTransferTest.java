package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class BulkTransferTest extends UsbTest {
    private static final int LATE_MS = 5_000;

    @ParameterizedTest(name = "{0} bytes")
    @ValueSource(ints = {1, 63, 64, 65, 512, 4096, 100_000})
    void bytesWrittenComeBackAsTheyWere(int size) {
        Device bench = openBench();
        byte[] sent = pattern(size);
        byte[] given = sent.clone();
        byte[] echo = new byte[size];
        assertEquals(size, bench.write(0x01, given));
        assertArrayEquals(sent, given, "a write changed its buffer");
        int got = 0;
        while (got < size) {
            byte[] piece = new byte[size - got];
            int moved = bench.read(0x81, piece);
            assertTrue(moved > 0, "read " + moved);
            System.arraycopy(piece, 0, echo, got, moved);
            got += moved;
        }
        assertArrayEquals(sent, echo);
    }

    @Test
    void aReadEndsWithAShortPacketAndLeavesTheRestOfTheBuffer() {
        Device bench = openBench();
        byte[] buffer = new byte[512];
        Arrays.fill(buffer, (byte) 0x77);
        assertEquals(10, bench.write(0x01, pattern(10)));
        assertEquals(10, bench.read(0x81, buffer));
        byte[] expected = new byte[512];
        Arrays.fill(expected, (byte) 0x77);
        System.arraycopy(pattern(10), 0, expected, 0, 10);
        assertArrayEquals(expected, buffer);
    }

    @Test
    void onlyTheGivenLengthMoves() {
        Device bench = openBench();
        assertEquals(5, usb.usbWriteBulkPipe(bench.list(), bench.index(), 0x01, 5, Device.AMPLE, pattern(64)));
        assertArrayEquals(pattern(5), bus.received("bench", 0x01).get(0));
        byte[] buffer = new byte[64];
        assertEquals(5, usb.usbReadBulkPipe(bench.list(), bench.index(), 0x81, 5, Device.AMPLE, buffer));
        assertArrayEquals(Arrays.copyOf(pattern(5), 64), buffer);
    }

    @Test
    void anEmptyWriteSendsAnEmptyPacket() {
        Device bench = openBench();
        assertEquals(0, bench.write(0x03));
        assertEquals(1, bus.received("bench", 0x03).size());
        assertEquals(0, bus.received("bench", 0x03).get(0).length);
    }

    @Test
    void theCallDecidesTheDirectionOfTheEndpoint() {
        Device bench = openBench();
        for (int endpoint : new int[] {0x01, 0x81, (byte) 0x81}) {
            assertEquals(3, bench.write(endpoint, pattern(3)), "write to " + endpoint);
            assertEquals(3, bench.read(endpoint, new byte[3]), "read from " + endpoint);
        }
    }

    @Test
    void anEndpointNumberAbove15IsNotOpen() {
        Device bench = openBench();
        for (int endpoint : new int[] {0x10, 0x1F, 0x7F}) {
            assertEquals(-109, bench.write(endpoint, pattern(1)));
            assertEquals(-109, bench.read(endpoint, new byte[1]));
            assertEquals(-109, bench.cancel(endpoint));
            assertEquals(-109, bench.cancel(endpoint | 0x80));
        }
        assertEquals(1, bench.write(0x01, pattern(1)));
    }

    @Test
    void aReadFromASilentEndpointTimesOutInTime() {
        Device bench = openBench();
        long start = System.nanoTime();
        assertEquals(-150, bench.read(0x84, 100, new byte[64]));
        assertInTime(start);
    }

    @Test
    @Tag("memory")
    void whatCameBeforeTheTimeRanOutIsInTheBuffer() {
        Device bench = openBench();
        bus.endpoint("bench", 0x84, "{\"limit\": 3}");
        byte[] buffer = new byte[64];
        Arrays.fill(buffer, (byte) 0x77);
        byte[] expected = buffer.clone();
        System.arraycopy(new byte[] {0, 1, 2}, 0, expected, 0, 3);
        assertEquals(-150, bench.read(0x84, 100, buffer));
        assertArrayEquals(expected, buffer);
    }

    @Test
    void aWriteToASilentEndpointTimesOutInTime() {
        Device bench = openBench();
        long start = System.nanoTime();
        assertEquals(-150, bench.write(0x04, 100, pattern(64)));
        assertInTime(start);
    }

    private static void assertInTime(long start) {
        long millis = (System.nanoTime() - start) / 1_000_000;
        assertTrue(95 <= millis && millis < LATE_MS, () -> "100 ms took " + millis);
    }

    @Test
    void anEndpointWorksAgainAfterATimeOut() {
        Device bench = openBench();
        assertEquals(-150, bench.read(0x81, 50, new byte[64]));
        assertEquals(7, bench.write(0x01, pattern(7)));
        assertEquals(7, bench.read(0x81, new byte[64]));
    }

    @Test
    void aTimeOutOfZeroWaitsUntilThereIsSomething() throws Exception {
        Device bench = openBench();
        byte[] buffer = new byte[64];
        Future<Integer> read = whileWaiting("bench", 0x81, () -> bench.read(0x81, 0, buffer));
        bus.feed("bench", 0x81, pattern(9));
        assertEquals(9, result(read));
        assertArrayEquals(Arrays.copyOf(pattern(9), 64), buffer);
    }

    @ParameterizedTest(name = "time-out {0}")
    @ValueSource(ints = {-1, Integer.MIN_VALUE})
    void aNegativeTimeOutIsAVeryLongOne(int timeout) throws Exception {
        Device bench = openBench();
        Future<Integer> read = whileWaiting("bench", 0x81, () -> bench.read(0x81, timeout, new byte[64]));
        bus.feed("bench", 0x81, pattern(9));
        assertEquals(9, result(read));
    }

    @Test
    void aStallGivesTheBytesMovedAndNoError() {
        Device bench = openBench();
        byte[] buffer = pattern(64);
        assertEquals(0, bench.read(0x85, buffer));
        assertArrayEquals(pattern(64), buffer, "a failed read changed the buffer");
        assertEquals(0, bench.write(0x05, pattern(64)));
    }

    @Test
    void cancelEndsAReadWithTheBytesMoved() throws Exception {
        Device bench = openBench();
        Future<Integer> read = whileWaiting("bench", 0x84, () -> bench.read(0x84, 0, new byte[64]));
        assertEquals(0, bench.cancel(0x84));
        assertEquals(0, result(read));
    }

    @Test
    void cancelEndsAWrite() throws Exception {
        Device bench = openBench();
        Future<Integer> write = whileWaiting("bench", 0x04, () -> bench.write(0x04, 0, pattern(64)));
        assertEquals(0, bench.cancel(0x04));
        assertEquals(0, result(write));
    }

    @Test
    void cancelOfTheOtherDirectionLeavesTheTransferAlone() throws Exception {
        Device bench = openBench();
        Future<Integer> read = whileWaiting("bench", 0x81, () -> bench.read(0x81, 0, new byte[64]));
        assertEquals(-5, bench.cancel(0x01));
        bus.feed("bench", 0x81, pattern(3));
        assertEquals(3, result(read));
    }

    @Test
    void cancelWithNothingToCancelIsNotFound() {
        Device bench = openBench();
        assertEquals(-5, bench.cancel(0x81));
        assertEquals(1, bench.write(0x01, pattern(1)));
        assertEquals(-5, bench.cancel(0x01));
    }

    @Test
    void aDeviceThatIsNotOpenHasNoPipes() {
        Device bench = find(sessionWithList(), "BENCH00001");
        assertNoPipes(bench);
        assertEquals(0, bench.open());
        assertEquals(0, bench.close());
        assertNoPipes(bench);
        assertNoPipes(new Device(usb, 1_000_000, 0));
    }

    private void assertNoPipes(Device d) {
        byte[] buffer = pattern(64);
        assertEquals(-114, d.write(0x01, buffer));
        assertEquals(-114, d.read(0x81, buffer));
        assertEquals(-114, d.writeInterrupt(0x02, buffer));
        assertEquals(-114, d.readInterrupt(0x82, buffer));
        assertEquals(-114, d.writePackets(0x02, buffer, 64, 0));
        assertEquals(-114, usb.usbReadInterruptPipeEx(d.list(), d.index(), 0x82, 64, 100, buffer, 64, 0));
        assertEquals(-114, usb.usbWriteBulkPipeEx(d.list(), d.index(), 0x01, 64, 100, buffer, 64, 0));
        assertEquals(-114, usb.usbReadBulkPipeEx(d.list(), d.index(), 0x81, 64, 100, buffer, 64, 0));
        assertEquals(-114, d.controlWrite(buffer));
        assertEquals(-114, d.controlRead(buffer));
        assertEquals(-114, d.cancel(0x81));
        assertEquals(-114, usb.usbResetPipe(d.list(), d.index(), 0x81));
        assertEquals(-114, usb.usbResetDevice(d.list(), d.index()));
        assertArrayEquals(pattern(64), buffer);
    }

    @ParameterizedTest(name = "packet size {0}")
    @ValueSource(ints = {64, 0, -1, 63, 1025, Integer.MAX_VALUE})
    void theExtendedCallsTakeAnyPacketSizeAndPadNothing(int packetSize) {
        Device bench = openBench();
        int list = bench.list();
        int index = bench.index();
        assertEquals(10, usb.usbWriteBulkPipeEx(list, index, 0x81, 10, Device.AMPLE, pattern(10), packetSize, 0xFF));
        assertArrayEquals(pattern(10), bus.received("bench", 0x01).get(0));
        byte[] echo = new byte[64];
        assertEquals(10, usb.usbReadBulkPipeEx(list, index, 0x01, 64, Device.AMPLE, echo, packetSize, 0xFF));
        assertArrayEquals(Arrays.copyOf(pattern(10), 64), echo);
    }

    @Test
    void aSourceAndASinkMoveLargeTransfersWhole() {
        Device bench = openBench();
        byte[] big = pattern(200_000);
        assertEquals(big.length, bench.write(0x03, big));
        byte[] counting = new byte[64 * 1024];
        assertEquals(counting.length, bench.read(0x83, counting));
        for (int i = 1; i < counting.length; i++) {
            assertEquals((byte) (counting[0] + i), counting[i], "byte " + i);
        }
    }

    @Test
    void endpointsAndDevicesTransferAtTheSameTime() throws Exception {
        Device bench = openBench();
        Device pair = open(find(bench.list(), "PAIR0002"));
        Future<Integer> blocked = whileWaiting("bench", 0x84, () -> bench.read(0x84, 0, new byte[64]));
        List<Future<Integer>> echoes = new ArrayList<>();
        echoes.add(onAnotherThread(() -> echoMany(bench, 0x01)));
        echoes.add(onAnotherThread(() -> echoMany(pair, 0x01)));
        echoes.add(onAnotherThread(() -> {
            for (int i = 0; i < 200; i++) {
                assertEquals(64, bench.write(0x03, pattern(64)));
            }
            return 0;
        }));
        for (Future<Integer> echo : echoes) {
            assertEquals(0, result(echo));
        }
        assertEquals(0, bench.cancel(0x84));
        assertEquals(0, result(blocked));
    }

    private static int echoMany(Device device, int endpoint) {
        byte[] buffer = new byte[64];
        for (int i = 0; i < 200; i++) {
            byte[] sent = pattern(1 + i % 64);
            assertEquals(sent.length, device.write(endpoint, sent));
            assertEquals(sent.length, device.read(endpoint, buffer));
            assertArrayEquals(sent, Arrays.copyOf(buffer, sent.length));
        }
        return 0;
    }

    @Test
    void unplugEndsAReadThatWaits() throws Exception {
        Device bench = openBench();
        Future<Integer> read = whileWaiting("bench", 0x84, () -> bench.read(0x84, 0, new byte[64]));
        bus.unplug("bench");
        assertEquals(0, result(read));
        assertEquals(0, bench.close());
    }

    @Test
    void unplugEndsAWriteThatWaits() throws Exception {
        Device bench = openBench();
        Future<Integer> write = whileWaiting("bench", 0x04, () -> bench.write(0x04, 0, pattern(64)));
        bus.unplug("bench");
        assertEquals(0, result(write));
        assertEquals(0, bench.close());
    }

    @Test
    void transfersToAPulledDeviceMoveNothing() {
        Device bench = openBench();
        bus.unplug("bench");
        await("a write cannot start", () -> bench.write(0x01, pattern(4)) == -112);
        assertEquals(-113, bench.read(0x81, new byte[4]));
        assertEquals(0, bench.close());
    }

    @Test
    @Tag("memory")
    void aTransferThatCannotStartTellsItsDirection() {
        Device bench = openBench();
        bus.failNext("libusb_submit_transfer", -1);
        assertEquals(-112, bench.write(0x01, pattern(4)));
        bus.failNext("libusb_submit_transfer", -1);
        assertEquals(-113, bench.read(0x81, new byte[4]));
        assertEquals(4, bench.write(0x01, pattern(4)));
        assertEquals(4, bench.read(0x81, new byte[4]));
    }

    @Test
    @Tag("memory")
    void aDeviceThatTakesLessGivesTheSmallerCount() {
        Device bench = openBench();
        bus.endpoint("bench", 0x03, "{\"limit\": 10}");
        assertEquals(10, bench.write(0x03, pattern(64)));
    }
}
