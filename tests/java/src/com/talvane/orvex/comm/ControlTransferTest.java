package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Arrays;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

class ControlTransferTest extends UsbTest {
    private static final int IN = 0xC0;
    private static final int OUT = 0x40;

    /** A setup packet with room for its data. */
    static byte[] setup(int requestType, int request, int value, int index, int length) {
        return ByteBuffer.allocate(8 + length)
                .order(ByteOrder.LITTLE_ENDIAN)
                .put((byte) requestType)
                .put((byte) request)
                .putShort((short) value)
                .putShort((short) index)
                .putShort((short) length)
                .array();
    }

    private static byte[] setup(int requestType, int request, byte[] data) {
        byte[] buffer = setup(requestType, request, 0, 0, data.length);
        System.arraycopy(data, 0, buffer, 8, data.length);
        return buffer;
    }

    private static byte[] data(byte[] buffer, int length) {
        return Arrays.copyOfRange(buffer, 8, 8 + length);
    }

    @Test
    void dataGoOutAndComeIn() {
        Device bench = openBench();
        for (int size : new int[] {1, 64, 65, 1000, 4000}) {
            assertEquals(size, bench.controlWrite(setup(OUT, 1, pattern(size))));
            byte[] buffer = setup(IN, 1, 0, 0, 4096);
            assertEquals(size, bench.controlRead(buffer));
            assertArrayEquals(pattern(size), data(buffer, size));
        }
    }

    @Test
    void theSetupPacketIsGivenAsItStands() {
        byte[] buffer = setup(IN, 2, 0x1234, 0x0056, 16);
        assertEquals(3, openBench().controlRead(buffer));
        assertArrayEquals(new byte[] {(byte) 0xA1, (byte) 0xB2, (byte) 0xC3}, data(buffer, 3));
        assertArrayEquals(setup(IN, 2, 0x1234, 0x0056, 0), Arrays.copyOf(
                ByteBuffer.wrap(buffer).order(ByteOrder.LITTLE_ENDIAN).putShort(6, (short) 0).array(), 8));
    }

    @Test
    void theDirectionIsTheSetupPacketsAndNotTheCalls() {
        Device bench = openBench();
        assertEquals(5, bench.controlRead(setup(OUT, 1, pattern(5))));
        byte[] buffer = setup(IN, 1, 0, 0, 5);
        assertEquals(5, bench.controlWrite(buffer));
        assertArrayEquals(pattern(5), data(buffer, 5));
    }

    @Test
    void standardRequestsReachTheDevice() {
        byte[] buffer = setup(0x80, 6, 0x0100, 0, 18);
        Device bench = openBench();
        assertEquals(18, bench.controlRead(buffer));
        byte[] listed = new byte[18];
        assertEquals(18, usb.usbGetDeviceDescriptor(bench.list(), bench.index(), 1, 0, 18, listed));
        assertArrayEquals(listed, data(buffer, 18));
    }

    @Test
    void aRequestWithoutDataMovesNone() {
        assertEquals(0, openBench().controlWrite(setup(OUT, 1, 0, 0, 0)));
    }

    @Test
    void aStalledRequestMovesNothingAndThePipeGoesOn() {
        Device bench = openBench();
        assertEquals(0, bench.controlRead(setup(IN, 3, 0, 0, 16)));
        assertEquals(0, bench.controlWrite(setup(OUT, 3, pattern(4))));
        assertEquals(0, bench.controlRead(setup(IN, 0x7F, 0, 0, 16)));
        assertEquals(3, bench.controlRead(setup(IN, 2, 0x1234, 0x0056, 16)));
    }

    @Test
    void aTimeOutIsNotAnError() {
        Device bench = openBench();
        assertEquals(0, usb.usbReadControlPipe(bench.list(), bench.index(), 0, 100, setup(IN, 4, 0, 0, 16)));
        assertEquals(3, bench.controlRead(setup(IN, 2, 0x1234, 0x0056, 16)));
    }

    @Test
    void cancelEndsARequest() throws Exception {
        Device bench = openBench();
        Future<Integer> read = whileWaiting("bench", 0x00, () ->
                usb.usbReadControlPipe(bench.list(), bench.index(), 0, 0, setup(IN, 4, 0, 0, 16)));
        assertEquals(0, bench.cancel(0x00));
        assertEquals(0, result(read));
    }

    @Test
    void unplugEndsARequest() throws Exception {
        Device bench = openBench();
        Future<Integer> read = whileWaiting("bench", 0x00, () ->
                usb.usbReadControlPipe(bench.list(), bench.index(), 0, 0, setup(IN, 4, 0, 0, 16)));
        bus.unplug("bench");
        assertEquals(0, result(read));
    }

    @Test
    void aShortBufferGetsWhatFits() {
        Device bench = openBench();
        byte[] buffer = Arrays.copyOf(setup(IN, 2, 0x1234, 0x0056, 16), 10);
        assertEquals(3, bench.controlRead(buffer));
        assertArrayEquals(new byte[] {(byte) 0xA1, (byte) 0xB2}, data(buffer, 2));

        assertEquals(16, bench.controlWrite(Arrays.copyOf(setup(OUT, 1, pattern(16)), 12)));
        byte[] stored = setup(IN, 1, 0, 0, 16);
        assertEquals(16, bench.controlRead(stored));
        assertArrayEquals(Arrays.copyOf(pattern(4), 16), data(stored, 16));
    }

    @Test
    @Tag("memory")
    void aRequestThatCannotStartTellsTheCall() {
        Device bench = openBench();
        bus.failNext("libusb_submit_transfer", -1);
        assertEquals(-112, bench.controlWrite(setup(OUT, 1, pattern(4))));
        bus.failNext("libusb_submit_transfer", -1);
        assertEquals(-113, bench.controlRead(setup(IN, 1, 0, 0, 4)));
    }
}
