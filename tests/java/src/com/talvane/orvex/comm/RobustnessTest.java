package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.file.Path;
import java.util.Arrays;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.EnumSource;
import org.junit.jupiter.params.provider.ValueSource;

/** Wrong use, and use to the limit: the virtual machine lives on. */
class RobustnessTest extends UsbTest {
    @TempDir
    private Path folder;

    @Test
    void aShortArrayOfAReadGetsWhatFits() {
        Device bench = openBench();
        assertEquals(64, bench.write(0x01, pattern(64)));
        byte[] small = new byte[5];
        assertEquals(64, usb.usbReadBulkPipe(bench.list(), bench.index(), 0x81, 64, Device.AMPLE, small));
        assertArrayEquals(pattern(5), small);
    }

    @Test
    void aShortArrayOfAWriteIsFollowedByZeroes() {
        Device bench = openBench();
        byte[] small = pattern(5);
        assertEquals(64, usb.usbWriteBulkPipe(bench.list(), bench.index(), 0x03, 64, Device.AMPLE, small));
        assertArrayEquals(Arrays.copyOf(pattern(5), 64), bus.received("bench", 0x03).get(0));
        assertArrayEquals(pattern(5), small);
        assertEquals(70, usb.usbWriteInterruptPipeEx(
                bench.list(), bench.index(), 0x06, 70, Device.AMPLE, small, 64, 0xFF));
        assertArrayEquals(Arrays.copyOf(pattern(5), 64), bus.received("bench", 0x06).get(0));
        byte[] last = new byte[64];
        Arrays.fill(last, 6, 64, (byte) 0xFF);
        assertArrayEquals(last, bus.received("bench", 0x06).get(1));
    }

    @Test
    void shortArraysWithLargeLengthsLeaveTheHeapAlone() {
        Device bench = openBench();
        byte[][] neighbours = new byte[1000][];
        for (int i = 0; i < neighbours.length; i++) {
            byte[] tiny = new byte[i % 9];
            assertEquals(100_000, usb.usbReadBulkPipe(
                    bench.list(), bench.index(), 0x83, 100_000, Device.AMPLE, tiny));
            neighbours[i] = new byte[64];
        }
        System.gc();
        for (byte[] neighbour : neighbours) {
            assertArrayEquals(new byte[64], neighbour);
        }
    }

    @Test
    void nullArraysMoveNothing() {
        Device d = openBench();
        assertEquals(-112, usb.usbWriteBulkPipe(d.list(), d.index(), 0x01, 64, 1000, null));
        assertEquals(-113, usb.usbReadBulkPipe(d.list(), d.index(), 0x83, 64, 1000, null));
        assertEquals(-112, usb.usbWriteInterruptPipe(d.list(), d.index(), 0x02, 64, 1000, null));
        assertEquals(-113, usb.usbReadInterruptPipe(d.list(), d.index(), 0x82, 64, 1000, null));
        assertEquals(-112, usb.usbWriteInterruptPipeEx(d.list(), d.index(), 0x06, 64, 1000, null, 64, 0));
        assertEquals(-113, usb.usbReadInterruptPipeEx(d.list(), d.index(), 0x82, 64, 1000, null, 64, 0));
        assertEquals(0, usb.usbWriteBulkPipe(d.list(), d.index(), 0x03, 0, 1000, null));
        assertEquals(-112, usb.usbWriteControlPipe(d.list(), d.index(), 0, 1000, null));
        assertEquals(-113, usb.usbReadControlPipe(d.list(), d.index(), 0, 1000, null));
        usb.usbGetDeviceDescriptor(d.list(), d.index(), 1, 0, 18, null);
        usb.usbGetDeviceDescriptor(d.list(), d.index(), 2, 0, 512, null);
        usb.usbGetDeviceDescriptor(d.list(), d.index(), 3, 1, 64, null);
        usb.usbGetDeviceDescriptor(d.list(), d.index(), 5, 0x81, 7, null);
        assertEquals(4, d.write(0x01, pattern(4)));
        assertEquals(4, d.read(0x81, new byte[4]));
    }

    @ParameterizedTest(name = "length {0}")
    @ValueSource(ints = {-1, Integer.MIN_VALUE})
    void aNegativeLengthIsRefused(int length) {
        Device d = openBench();
        byte[] buffer = pattern(64);
        assertEquals(-112, usb.usbWriteBulkPipe(d.list(), d.index(), 0x03, length, 1000, buffer));
        assertEquals(-113, usb.usbReadBulkPipe(d.list(), d.index(), 0x83, length, 1000, buffer));
        assertEquals(-112, usb.usbWriteInterruptPipe(d.list(), d.index(), 0x06, length, 1000, buffer));
        assertEquals(-113, usb.usbReadInterruptPipe(d.list(), d.index(), 0x86, length, 1000, buffer));
        assertEquals(-112, usb.usbWriteBulkPipeEx(d.list(), d.index(), 0x03, length, 1000, buffer, 64, 0));
        assertEquals(-113, usb.usbReadBulkPipeEx(d.list(), d.index(), 0x83, length, 1000, buffer, 64, 0));
        assertEquals(-113, usb.usbReadInterruptPipeEx(d.list(), d.index(), 0x86, length, 1000, buffer, 64, 0));
        assertArrayEquals(pattern(64), buffer);
    }

    /** A transfer without time-out that waits at the tool, of which nothing has moved. */
    private enum Waiting {
        READ, WRITE_OF_A_THOUSAND_PACKETS
    }

    private Future<Integer> start(Waiting transfer, Device bench) {
        return switch (transfer) {
            case READ -> whileWaiting("bench", 0x84, () -> bench.read(0x84, 0, new byte[64]));
            case WRITE_OF_A_THOUSAND_PACKETS -> whileWaiting("bench", 0x07, () -> usb.usbWriteInterruptPipeEx(
                    bench.list(), bench.index(), 0x07, 64_000, 0, new byte[64_000], 64, 0));
        };
    }

    @ParameterizedTest
    @EnumSource
    void closeEndsATransferThatWaits(Waiting transfer) throws Exception {
        Device bench = openBench();
        Future<Integer> moved = start(transfer, bench);
        assertEquals(0, bench.close());
        assertEquals(0, result(moved));
        assertEquals(-114, bench.read(0x84, new byte[1]));
        assertEquals(0, bench.open());
        assertEquals(4, bench.write(0x01, pattern(4)));
    }

    @ParameterizedTest
    @EnumSource
    void releasingTheListEndsATransferThatWaits(Waiting transfer) throws Exception {
        Device bench = openBench();
        Future<Integer> moved = start(transfer, bench);
        assertEquals(0, usb.usbReleaseDeviceList(bench.list()));
        assertEquals(0, result(moved));
        assertEquals(-109, bench.read(0x84, new byte[1]));
        assertEquals(-109, bench.close());
        assertEquals(-114, bench.close());
        open(find(list(VENDOR), "BENCH00001"));
    }

    @ParameterizedTest
    @EnumSource
    void endingTheSessionEndsATransferThatWaits(Waiting transfer) throws Exception {
        Device bench = openBench();
        Future<Integer> moved = start(transfer, bench);
        assertEquals(0, usb.usbRelease(0));
        assertEquals(0, result(moved));
        assertEquals(-109, bench.read(0x84, new byte[1]));
    }

    @Test
    void cancelDuringAPacketWriteEndsOnePacketWhichCountsAsSent() throws Exception {
        Device bench = openBench();
        Future<Integer> write = whileWaiting("bench", 0x07, () -> usb.usbWriteInterruptPipeEx(
                bench.list(), bench.index(), 0x07, 100, 0, new byte[100], 64, 0));
        await("both packets are cancelled", () -> {
            bench.cancel(0x07);
            return write.isDone();
        });
        assertEquals(100, result(write));
    }

    @Test
    void aDeviceOfAReleasedListIsNotOpen() {
        Device bench = openBench();
        assertEquals(0, usb.usbReleaseDeviceList(bench.list()));
        assertEquals(-109, bench.write(0x01, pattern(1)));
        assertEquals(-114, bench.open());
        open(find(list(VENDOR), "BENCH00001"));
    }

    @ParameterizedTest
    @ValueSource(strings = {"leaveOpen", "leaveReading"})
    void aProgramMayEndWithoutGivingAnythingBack(String program) throws Exception {
        openSession();
        ChildVm.Outcome child = new ChildVm().withBus(bus.socketForChild(folder)).run(program);
        assertEquals("open: 0\n", child.out(), child.err());
        assertEquals(0, child.status(), child.err());
        assertEquals("", child.err());
    }
}
