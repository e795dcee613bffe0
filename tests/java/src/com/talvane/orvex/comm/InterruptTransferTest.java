package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.Arrays;
import java.util.List;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class InterruptTransferTest extends UsbTest {
    private static final int SINK = 0x06;

    private List<byte[]> packets() {
        return bus.received("bench", SINK);
    }

    private int readEx(Device d, int endpoint, byte[] buffer, int timeout, int packetSize) {
        return usb.usbReadInterruptPipeEx(
                d.list(), d.index(), endpoint, buffer.length, timeout, buffer, packetSize, 0xFF);
    }

    @Test
    void bytesWrittenComeBackAsTheyWere() {
        Device bench = openBench();
        for (int size : new int[] {1, 63, 64}) {
            byte[] echo = new byte[64];
            assertEquals(size, bench.writeInterrupt(0x02, pattern(size)));
            assertEquals(size, bench.readInterrupt(0x82, echo));
            assertArrayEquals(Arrays.copyOf(pattern(size), 64), echo);
        }
    }

    @Test
    void theCallDecidesTheDirectionOfTheEndpoint() {
        Device bench = openBench();
        assertEquals(3, bench.writeInterrupt(0x82, pattern(3)));
        assertEquals(3, bench.readInterrupt(0x02, new byte[64]));
        assertEquals(-109, bench.writeInterrupt(0x10, pattern(3)));
        assertEquals(-109, bench.readInterrupt(0x1F, new byte[3]));
    }

    @Test
    void silentEndpointsTimeOut() {
        Device bench = openBench();
        byte[] buffer = new byte[64];
        assertEquals(-150, usb.usbReadInterruptPipe(bench.list(), bench.index(), 0x86, 64, 100, buffer));
        assertEquals(-150, usb.usbWriteInterruptPipe(bench.list(), bench.index(), 0x07, 64, 100, buffer));
        assertEquals(-150, readEx(bench, 0x86, buffer, 100, 64));
        assertEquals(-150, usb.usbWriteInterruptPipeEx(bench.list(), bench.index(), 0x07, 64, 100, buffer, 64, 0));
    }

    @Test
    void aStallGivesTheBytesMovedAndNoError() {
        assertEquals(0, openBench().readInterrupt(0x87, new byte[64]));
    }

    @Test
    void cancelEndsARead() throws Exception {
        Device bench = openBench();
        Future<Integer> read = whileWaiting("bench", 0x86, () ->
                usb.usbReadInterruptPipe(bench.list(), bench.index(), 0x86, 64, 0, new byte[64]));
        assertEquals(0, bench.cancel(0x86));
        assertEquals(0, result(read));
    }

    @Test
    void packetsAreFilledUpWithTheFillValue() {
        Device bench = openBench();
        assertEquals(130, bench.writePackets(SINK, pattern(130), 64, 0xFF));
        List<byte[]> packets = packets();
        assertEquals(3, packets.size());
        assertArrayEquals(Arrays.copyOfRange(pattern(130), 0, 64), packets.get(0));
        assertArrayEquals(Arrays.copyOfRange(pattern(130), 64, 128), packets.get(1));
        byte[] last = new byte[64];
        Arrays.fill(last, (byte) 0xFF);
        System.arraycopy(pattern(130), 128, last, 0, 2);
        assertArrayEquals(last, packets.get(2));
    }

    @Test
    void onlyTheLowByteOfTheFillValueCounts() {
        assertEquals(1, openBench().writePackets(SINK, pattern(1), 64, 0x12345678));
        byte[] expected = new byte[64];
        Arrays.fill(expected, (byte) 0x78);
        expected[0] = 1;
        assertArrayEquals(expected, packets().get(0));
    }

    @Test
    void wholePacketsAreNotFilledUp() {
        assertEquals(128, openBench().writePackets(SINK, pattern(128), 64, 0xFF));
        assertEquals(2, packets().size());
        assertArrayEquals(Arrays.copyOfRange(pattern(128), 64, 128), packets().get(1));
    }

    @Test
    void aPacketMayHave1024Bytes() {
        assertEquals(1500, openBench().writePackets(SINK, pattern(1500), 1024, 0));
        assertEquals(2, packets().size());
        assertArrayEquals(Arrays.copyOf(pattern(1500), 1024), packets().get(0));
        assertArrayEquals(
                Arrays.copyOf(Arrays.copyOfRange(pattern(1500), 1024, 1500), 1024), packets().get(1));
    }

    @ParameterizedTest(name = "packet size {0}")
    @ValueSource(ints = {63, 1025, 0, -1})
    void aPacketSizeOutOfRangeIsRefusedAndNothingIsSent(int packetSize) {
        Device bench = openBench();
        assertEquals(-114, bench.writePackets(SINK, pattern(64), packetSize, 0));
        assertEquals(-114, readEx(bench, 0x82, new byte[64], Device.AMPLE, packetSize));
        assertEquals(List.of(), packets());
    }

    @ParameterizedTest(name = "packet size {0}")
    @ValueSource(ints = {64, 1024})
    void theExtendedReadChecksThePacketSizeAndReadsLikeThePlainOne(int packetSize) {
        Device bench = openBench();
        byte[] echo = new byte[64];
        assertEquals(10, bench.writeInterrupt(0x02, pattern(10)));
        assertEquals(10, readEx(bench, 0x02, echo, Device.AMPLE, packetSize));
        assertArrayEquals(Arrays.copyOf(pattern(10), 64), echo);
    }

    @ParameterizedTest(name = "length {0}")
    @ValueSource(ints = {0, -1, Integer.MIN_VALUE})
    void noBytesMakeNoPackets(int length) {
        Device bench = openBench();
        assertEquals(0, usb.usbWriteInterruptPipeEx(
                bench.list(), bench.index(), SINK, length, Device.AMPLE, pattern(64), 64, 0));
        assertEquals(List.of(), packets());
    }

    @Test
    void aPacketThatTimesOutIsNotCounted() throws Exception {
        Device bench = openBench();
        bus.endpoint("bench", SINK, "{\"behaviour\": \"silent\"}");
        Future<Integer> write = whileWaiting("bench", SINK, () -> usb.usbWriteInterruptPipeEx(
                bench.list(), bench.index(), SINK, 64, 200, pattern(64), 64, 0));
        assertEquals(-150, result(write));
        assertEquals(List.of(), packets());
    }

    @Test
    @Tag("memory")
    void packetsBeforeAFailureAreSentAndNotCounted() {
        Device bench = openBench();
        bus.fail("libusb_submit_transfer", 3, -1);
        assertEquals(-112, bench.writePackets(SINK, pattern(256), 64, 0));
        assertEquals(2, packets().size());
    }

    @Test
    @Tag("memory")
    void aPacketTakenInPartCountsAsWhole() {
        Device bench = openBench();
        bus.endpoint("bench", SINK, "{\"limit\": 10}");
        assertEquals(130, bench.writePackets(SINK, pattern(130), 64, 0));
        assertEquals(3, packets().size());
    }

    @Test
    @Tag("memory")
    void aTransferThatCannotStartTellsItsDirection() {
        Device bench = openBench();
        bus.failNext("libusb_submit_transfer", -1);
        assertEquals(-112, bench.writeInterrupt(0x02, pattern(4)));
        bus.failNext("libusb_submit_transfer", -1);
        assertEquals(-113, bench.readInterrupt(0x82, new byte[4]));
        bus.failNext("libusb_submit_transfer", -1);
        assertEquals(-113, readEx(bench, 0x82, new byte[4], Device.AMPLE, 64));
    }
}
