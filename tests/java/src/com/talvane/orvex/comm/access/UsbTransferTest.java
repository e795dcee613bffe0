package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.UsbAccessCode;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** Transfers of the safe layer: what they move, what they refuse and how they fail. */
class UsbTransferTest extends AccessTest {
    @Test
    void aPartOfAnArrayGoesOutAndComesBackIntoAPart() throws UsbException {
        UsbDevice bench = open(BENCH);
        byte[] out = pattern(20);
        assertEquals(10, bench.writeBulk(0x01, out, 5, 10, AMPLE));
        assertArrayEquals(Arrays.copyOfRange(out, 5, 15), bus.received("bench", 0x01).get(0));
        byte[] in = new byte[100];
        assertEquals(10, bench.readBulk(0x81, in, 30, 64, AMPLE));
        byte[] expected = new byte[100];
        System.arraycopy(out, 5, expected, 30, 10);
        assertArrayEquals(expected, in);
        assertEquals(3, bench.writeInterrupt(0x02, out, 17, 3, AMPLE));
        assertEquals(3, bench.readInterrupt(0x82, in, 36, 64, AMPLE));
        assertArrayEquals(Arrays.copyOfRange(out, 17, 20), Arrays.copyOfRange(in, 36, 39));
    }

    @ParameterizedTest
    @CsvSource({"-1, 1", "0, -1", "0, 65", "64, 1", "65, 0", "1, 64", "2147483647, 1", "1, 2147483647",
        "2147483647, 2147483647", "-2147483648, 64"})
    void whatLiesOutsideTheArrayIsRefused(int offset, int length) throws UsbException {
        UsbDevice bench = open(BENCH);
        byte[] bytes = pattern(64);
        assertThrows(IndexOutOfBoundsException.class, () -> bench.readBulk(0x83, bytes, offset, length, AMPLE));
        assertThrows(IndexOutOfBoundsException.class, () -> bench.writeBulk(0x03, bytes, offset, length, AMPLE));
        assertThrows(IndexOutOfBoundsException.class, () -> bench.readInterrupt(0x82, bytes, offset, length, AMPLE));
        assertThrows(IndexOutOfBoundsException.class, () -> bench.writeInterrupt(0x06, bytes, offset, length, AMPLE));
        assertArrayEquals(pattern(64), bytes);
        assertEquals(0, bus.received("bench", 0x03).size());
    }

    @Test
    void noBytesAreMovedFromTheEndOfAnArray() throws UsbException {
        UsbDevice bench = open(BENCH);
        assertEquals(0, bench.writeBulk(0x03, pattern(4), 4, 0, AMPLE));
        assertEquals(0, bus.received("bench", 0x03).get(0).length);
        assertEquals(0, bench.readBulk(0x83, new byte[4], 4, 0, AMPLE));
    }

    @Test
    void anEndpointThatTheDeviceDoesNotHaveMovesNothing() throws UsbException {
        UsbDevice bench = open(BENCH);
        assertThrows(UsbException.class, () -> read(bench, 0x8F, new byte[4]));
        assertThrows(UsbException.class, () -> bench.readFully(0x8F, new byte[4], 0, 4, AMPLE));
        assertThrows(UsbException.class, () -> bench.writeFully(0x0F, new byte[4], 0, 4, AMPLE));
    }

    @ParameterizedTest
    @ValueSource(ints = {0, 0x80, 0x10, 0x90, -1, 0x101, 0x181})
    void endpointsThatCannotBeAreRefused(int endpoint) throws UsbException {
        UsbDevice bench = open(BENCH);
        assertThrows(IllegalArgumentException.class, () -> read(bench, endpoint, new byte[1]));
        assertThrows(IllegalArgumentException.class, () -> write(bench, endpoint, new byte[1]));
    }

    @Test
    void theDirectionOfTheEndpointHasToFit() throws UsbException {
        UsbDevice bench = open(BENCH);
        assertThrows(IllegalArgumentException.class, () -> read(bench, 0x01, new byte[1]));
        assertThrows(IllegalArgumentException.class, () -> write(bench, 0x81, new byte[1]));
    }

    @Test
    void timeOutsThatCannotBeAreRefused() throws UsbException {
        UsbDevice bench = open(BENCH);
        byte[] bytes = new byte[1];
        assertThrows(IllegalArgumentException.class, () -> bench.readBulk(0x81, bytes, 0, 1, -1));
        assertThrows(IllegalArgumentException.class, () -> bench.writeBulk(0x01, bytes, 0, 1, UsbDevice.FOREVER));
        assertThrows(IllegalArgumentException.class, () -> bench.readControl(0xC0, 1, 0, 0, 1, UsbDevice.FOREVER));
        assertThrows(IllegalArgumentException.class, () -> bench.writeControl(0x40, 1, 0, 0, bytes, -1));
        Setup.endingTimeout(1); // the least
    }

    @Test
    void timeOutsAreTold() throws UsbException {
        UsbDevice bench = open(BENCH);
        byte[] bytes = new byte[64];
        UsbException failure =
                assertThrows(UsbTimeoutException.class, () -> bench.readBulk(0x84, bytes, 0, 64, 20));
        assertEquals(UsbAccessCode.TIMED_OUT, failure.code());
        assertEquals("read from endpoint 0x84 of BENCH00001", failure.attempted());
        assertTrue(failure.getMessage().startsWith(failure.attempted() + ": -150: "), failure.getMessage());
        assertThrows(UsbTimeoutException.class, () -> bench.writeBulk(0x04, bytes, 0, 64, 20));
        assertThrows(UsbTimeoutException.class, () -> bench.readControl(0xC0, 4, 0, 0, 1, 20));
    }

    @Test
    void stallsAreTold() throws UsbException {
        UsbDevice bench = open(BENCH);
        byte[] bytes = new byte[64];
        assertThrows(UsbStalledException.class, () -> read(bench, 0x85, bytes));
        assertThrows(UsbStalledException.class, () -> write(bench, 0x05, bytes));
        assertThrows(UsbStalledException.class, () -> bench.readInterrupt(0x87, bytes, 0, 64, AMPLE));
        assertThrows(UsbStalledException.class, () -> bench.writeControl(0x40, 3, 0, 0, bytes, AMPLE));
        assertThrows(UsbStalledException.class, () -> bench.readControl(0xC0, 3, 0, 0, 4, AMPLE));
    }

    @Test
    void anEmptyPacketIsNoFailure() throws UsbException {
        UsbDevice bench = open(BENCH);
        assertEquals(0, write(bench, 0x01, new byte[0]));
        assertEquals(0, read(bench, 0x81, new byte[64]));
    }

    @Test
    void controlRequestsCarryTheirFields() throws UsbException {
        UsbDevice bench = open(BENCH);
        assertEquals(3, bench.writeControl(0x40, 1, 0, 0, pattern(3), AMPLE));
        assertArrayEquals(pattern(3), bench.readControl(0xC0, 1, 0, 0, 64, AMPLE));
        assertArrayEquals(
                HexFormat.of().parseHex("A1B2C3"), bench.readControl(0xC0, 2, 0x1234, 0x0056, 300, AMPLE));
        assertEquals(0, bench.writeControl(0x40, 1, 0, 0, new byte[0], AMPLE));
    }

    @ParameterizedTest
    @CsvSource({"0x40, 1, 0, 0, 1", "0x1C0, 1, 0, 0, 1", "0xC0, 256, 0, 0, 1", "0xC0, -1, 0, 0, 1",
        "0xC0, 1, 65536, 0, 1", "0xC0, 1, 0, -1, 1", "0xC0, 1, 0, 0, 65536", "0xC0, 1, 0, 0, -1"})
    void controlFieldsThatCannotBeAreRefused(int type, int request, int value, int index, int length)
            throws UsbException {
        UsbDevice bench = open(BENCH);
        assertThrows(IllegalArgumentException.class,
                () -> bench.readControl(type, request, value, index, length, AMPLE));
        assertThrows(IllegalArgumentException.class,
                () -> bench.writeControl(0xC0, request, value, index, new byte[1], AMPLE));
    }

    @Test
    @Tag("memory")
    void aTransferThatCannotStartIsAFailureOfADeviceThatIsThere() throws UsbException {
        UsbDevice bench = open(BENCH);
        bus.failNext("libusb_submit_transfer", -1);
        UsbException failure = assertThrows(UsbException.class, () -> write(bench, 0x01, new byte[1]));
        assertEquals(UsbException.class, failure.getClass());
        assertEquals(UsbAccessCode.WRITE_FAILED, failure.code());
    }

    @Test
    void aReadOfADeviceThatIsPulledTellsThatItIsGone() throws Exception {
        UsbDevice bench = open(BENCH);
        Future<Integer> reader = whileWaiting("bench", 0x84, () -> readUntilGone(bench));
        bus.unplug("bench");
        assertThrowsGone(reader);
        await("a write tells, too", () -> isGone(bench));
        bench.close();
        plugBack();
        assertEquals(1, write(bench.open(), 0x01, new byte[1]));
    }

    private static void assertThrowsGone(Future<Integer> reader) {
        failure(UsbDeviceGoneException.class, reader);
    }

    /** A device that is being unplugged may fail with another code first. */
    private static int readUntilGone(UsbDevice device) throws UsbException {
        while (true) {
            try {
                read(device, 0x84, new byte[64]);
            } catch (UsbDeviceGoneException e) {
                throw e;
            } catch (UsbException e) {
                assertEquals(UsbException.class, e.getClass());
            }
        }
    }

    private static boolean isGone(UsbDevice device) {
        return assertThrows(UsbException.class, () -> write(device, 0x01, new byte[1]))
                instanceof UsbDeviceGoneException;
    }

    /** Plugs in again what was pulled; the list has seen it leave before it comes back. */
    private void plugBack() {
        await("it left", () -> !unchecked(() -> list().update()).left().isEmpty());
        bus.plug("bench");
        await("it is back", () -> !unchecked(() -> list().update()).came().isEmpty());
    }

    @Test
    void aDeviceThatWasPluggedInAnewHasToBeOpenedAnew() throws UsbException {
        UsbDevice bench = open(BENCH);
        bus.unplug("bench");
        plugBack();
        assertThrows(UsbDeviceGoneException.class, () -> write(bench, 0x01, new byte[1]));
        bench.close();
        assertEquals(1, write(bench.open(), 0x01, new byte[1]));
    }

    @Test
    void transfersOnOneEndpointWaitForTheirTurn() throws Exception {
        UsbDevice bench = open(BENCH);
        Future<Integer> first = whileWaiting("bench", 0x81, () -> read(bench, 0x81, new byte[64]));
        Future<Integer> second = onAnotherThread(() -> read(bench, 0x81, new byte[64]));
        bus.feed("bench", 0x81, pattern(5));
        bus.feed("bench", 0x81, pattern(5));
        assertEquals(5, result(first));
        assertEquals(5, result(second));
    }

    @Test
    void whatIsRefusedIsToldAsPeopleWriteIt() throws UsbException {
        UsbDevice bench = open(BENCH);
        byte[] bytes = new byte[1];
        assertTold("endpoint 0x01 is not within 0x81 to 0x8F", () -> bench.readBulk(0x01, bytes, 0, 1, 1000));
        assertTold("endpoint 0x81 is not within 0x01 to 0x0F", () -> bench.writeBulk(0x81, bytes, 0, 1, 1000));
        assertTold("endpoint -1 is not within 0x81 to 0x8F", () -> bench.readBulk(-1, bytes, 0, 1, 1000));
        assertTold("endpoint 0x00 is not within 0x81 to 0x8F", () -> bench.readBulk(0, bytes, 0, 1, 1000));
        assertTold("request 0x100 is not within 0x00 to 0xFF", () -> bench.readControl(0xC0, 256, 0, 0, 1, 1000));
        assertTold("time-out FOREVER is not 1 ms or more: only a read may wait for ever",
                () -> bench.writeBulk(0x01, bytes, 0, 1, UsbDevice.FOREVER));
        assertTold("time-out -1 is neither FOREVER nor 1 ms or more", () -> bench.readBulk(0x81, bytes, 0, 1, -1));
        assertTold("value 0x10000 is not within 0x0000 to 0xFFFF",
                () -> bench.readControl(0xC0, 1, 0x10000, 0, 1, 1000));
        assertTold("length 65536 is not within 0 to 65535",
                () -> bench.writeControl(0x40, 1, 0, 0, new byte[0x10000], 1000));
    }

    private static void assertTold(String text, Executable call) {
        assertEquals(text, assertThrows(IllegalArgumentException.class, call).getMessage());
    }

    @Test
    @Tag("memory")
    void anEndpointWhosePacketsHaveNoSizeCanBeRead() throws UsbException {
        bus.change("spare", "{\"interfaces\": [{\"class\": 255, \"endpoints\": [{\"address\": \"0x81\","
                + " \"type\": \"bulk\", \"maxPacketSize\": 0, \"behaviour\": \"silent\"}]}]}");
        bus.plug("spare");
        UsbDevice spare = open("SPARE005");
        assertEquals(0, spare.endpoints().get(0).packetBytes());
        assertThrows(UsbTimeoutException.class, () -> spare.readBulk(0x81, new byte[3], 0, 3, 20));
    }

    @Test
    void aPacketThatDoesNotFitIsTold() throws UsbException {
        UsbDevice bench = open(BENCH);
        write(bench, 0x01, pattern(64));
        byte[] in = new byte[20];
        UsbOverflowException failure =
                assertThrows(UsbOverflowException.class, () -> bench.readBulk(0x81, in, 5, 10, AMPLE));
        assertEquals(10, failure.moved());
        assertEquals(UsbAccessCode.OVERFLOW, failure.code());
        byte[] expected = new byte[20];
        System.arraycopy(pattern(10), 0, expected, 5, 10);
        assertArrayEquals(expected, in);
        write(bench, 0x01, pattern(10));
        assertEquals(10, bench.readBulk(0x81, in, 0, 10, AMPLE));
    }

    @Test
    void allBytesAreReadAndWritten() throws UsbException {
        UsbDevice bench = open(BENCH);
        bench.writeFully(0x01, pattern(700), 0, 300, AMPLE);
        bench.writeFully(0x01, pattern(700), 300, 400, AMPLE);
        byte[] in = new byte[710];
        bench.readFully(0x81, in, 10, 700, AMPLE);
        assertArrayEquals(pattern(700), Arrays.copyOfRange(in, 10, 710));
        bench.writeFully(0x02, pattern(5), 0, 5, AMPLE);
        bench.readFully(0x82, in, 0, 5, AMPLE);
        assertArrayEquals(pattern(5), Arrays.copyOf(in, 5));
        bench.writeFully(0x01, in, 0, 0, AMPLE);
        bench.readFully(0x81, in, 0, 0, AMPLE);
        assertEquals(2, bus.received("bench", 0x01).size());
    }

    @Test
    void howMuchOfAllBytesHadMovedIsTold() throws UsbException {
        UsbDevice bench = open(BENCH);
        byte[] in = new byte[100];
        write(bench, 0x01, pattern(30));
        write(bench, 0x01, pattern(20));
        UsbTimeoutException failure =
                assertThrows(UsbTimeoutException.class, () -> bench.readFully(0x81, in, 0, 100, EXPIRING));
        assertEquals(50, failure.moved());
        assertArrayEquals(pattern(30), Arrays.copyOf(in, 30));
        assertThrows(IllegalArgumentException.class, () -> bench.readFully(0x01, in, 0, 1, AMPLE));
        assertThrows(IllegalArgumentException.class, () -> bench.writeFully(0x81, in, 0, 1, AMPLE));
        assertThrows(IndexOutOfBoundsException.class, () -> bench.readFully(0x81, in, 90, 11, AMPLE));
        assertThrows(IndexOutOfBoundsException.class, () -> bench.writeFully(0x01, in, 90, 11, AMPLE));
        assertThrows(IllegalArgumentException.class, () -> bench.writeFully(0x01, in, 0, 1, UsbDevice.FOREVER));
    }

    @Test
    void whatCannotBeIsRefusedAlsoWhenNoBytesAreToMove() throws UsbException {
        UsbDevice bench = open(BENCH);
        byte[] none = {};
        assertThrows(IllegalArgumentException.class, () -> bench.readFully(0x01, none, 0, 0, AMPLE));
        assertThrows(IllegalArgumentException.class, () -> bench.readFully(0x81, none, 0, 0, -1));
        assertThrows(IllegalArgumentException.class, () -> bench.writeFully(0x81, none, 0, 0, AMPLE));
        assertThrows(IllegalArgumentException.class, () -> bench.writeFully(0x01, none, 0, 0, UsbDevice.FOREVER));
        assertEquals(0, bench.writeBulk(0x01, none, 0, 0, AMPLE));
    }

    @Test
    void aPullInTheMiddleTellsHowMuchHadMoved() throws Exception {
        UsbDevice bench = open(BENCH);
        byte[] in = new byte[100];
        bus.feed("bench", 0x81, pattern(30));
        Future<Integer> reader = onAnotherThread(() -> {
            bench.readFully(0x81, in, 0, 100, UsbDevice.FOREVER);
            return 0;
        });
        await("it waits for the rest", () -> in[29] != 0 && bus.pending("bench", 0x81) > 0);
        bus.unplug("bench");
        assertEquals(30, failure(UsbException.class, reader).moved());
        bench.close();
    }

    @Test
    @Tag("memory")
    void aPullInTheMiddleOfAWriteTellsHowMuchHadMoved() throws Exception {
        bus.endpoint("bench", 0x04, "{\"limit\": 64}");
        UsbDevice bench = open(BENCH);
        Future<Integer> writer = whileWaiting("bench", 0x04, () -> {
            bench.writeFully(0x04, pattern(200), 0, 200, AMPLE);
            return 0;
        });
        bus.unplug("bench");
        assertEquals(64, failure(UsbDeviceGoneException.class, writer).moved());
        bench.close();
    }

    private static final int ERROR = 1; // how a transfer ended, in libusb's words
    private static final int STALL = 4;

    @Test
    @Tag("memory")
    void aWriteThatMovedNothingIsAFailure() throws UsbException {
        UsbDevice bench = open(BENCH);
        bus.failNext("transfer:0x03", ERROR);
        UsbException failure = assertThrows(UsbException.class, () -> write(bench, 0x03, new byte[8]));
        assertEquals(UsbException.class, failure.getClass());
        assertEquals(UsbAccessCode.IO, failure.code());
        assertEquals(8, write(bench, 0x03, new byte[8]));
    }

    @Test
    @Tag("memory")
    void aDeviceThatDoesNotSayWhetherItsEndpointIsHaltedHasFailed() throws UsbException {
        UsbDevice bench = open(BENCH);
        bus.failNext("transfer:0x83", ERROR);
        bus.failNext("transfer:0x00", STALL);
        UsbException failure = assertThrows(UsbException.class, () -> read(bench, 0x83, new byte[8]));
        assertEquals(UsbException.class, failure.getClass());
        assertEquals(UsbAccessCode.IO, failure.code());
    }

    @Test
    void aControlRequestOfADeviceThatIsPulledTellsThatItIsGone() throws Exception {
        UsbDevice bench = open(BENCH);
        Future<Integer> request =
                whileWaiting("bench", 0x00, () -> bench.readControl(0xC0, 4, 0, 0, 8, AMPLE).length);
        bus.unplug("bench");
        failure(UsbDeviceGoneException.class, request);
    }

    @Test
    @Tag("memory")
    void aResetOfADeviceThatIsGoneTellsThat() throws UsbException {
        UsbDevice bench = open(BENCH);
        for (UsbAccessCode code : new UsbAccessCode[] {UsbAccessCode.NOT_FOUND, UsbAccessCode.NO_DEVICE}) {
            bus.failNext("libusb_reset_device", code.code());
            assertThrows(UsbDeviceGoneException.class, bench::reset);
        }
        bus.failNext("libusb_reset_device", UsbAccessCode.IO.code());
        assertEquals(UsbAccessCode.IO, assertThrows(UsbException.class, bench::reset).code());
        bench.reset();
    }

    @Test
    @Tag("memory")
    void theTimeOutIsForAllBytesTogether() throws UsbException {
        bus.endpoint("bench", 0x83, "{\"limit\": 1}");
        UsbDevice bench = open(BENCH);
        UsbTimeoutException late = assertThrows(UsbTimeoutException.class,
                () -> bench.readFully(0x83, new byte[10_000_000], 0, 10_000_000, 20));
        assertTrue(late.moved() > 0);
    }
}
