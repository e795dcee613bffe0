package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** Output and input reports: how bytes are split into reports, and what happens to reports that are not read. */
class HidReportsTest extends HidTest {
    private static final int LARGE_REPORT = 512;
    /** Unread reports of 64 bytes that the library keeps. */
    private static final int ROOM = 999;
    /** Fewer than a kernel keeps for each open file. */
    private static final int BATCH = 40;

    private void assertSent(byte[]... reports) {
        List<byte[]> received = bus.received(ID, OUT);
        assertEquals(reports.length, received.size());
        for (int i = 0; i < reports.length; i++) {
            assertArrayEquals(reports[i], received.get(i), "report " + i);
        }
    }

    @Test
    void aReportComesBackAsItWas() {
        Device hid = openHid();
        byte[] echo = new byte[REPORT];
        assertEquals(REPORT, write(hid, pattern(REPORT)));
        assertEquals(REPORT, read(hid, echo));
        assertArrayEquals(pattern(REPORT), echo);
    }

    @Test
    void theLastReportOfAPlainWriteIsPadded() {
        assertEquals(130, write(openHid(), pattern(130)));
        assertSentInThree(0x5A);
    }

    @Test
    void theLastReportOfAnExtendedWriteIsFilledAsAskedFor() {
        assertEquals(130, writeEx(openHid(), pattern(130), REPORT, 0xFF));
        assertSentInThree(0xFF);
    }

    private void assertSentInThree(int fill) {
        assertSent(Arrays.copyOf(pattern(130), 64), Arrays.copyOfRange(pattern(130), 64, 128),
                filled(Arrays.copyOfRange(pattern(130), 128, 130), REPORT, fill));
    }

    @Test
    void wholeReportsAreNotPaddedAndNoBytesMakeNone() {
        Device hid = openHid();
        assertEquals(128, write(hid, pattern(128)));
        assertEquals(0, write(hid));
        assertEquals(0, writeEx(hid, new byte[0], REPORT, 0));
        assertSent(Arrays.copyOf(pattern(128), 64), Arrays.copyOfRange(pattern(128), 64, 128));
    }

    @ParameterizedTest(name = "reports of {0} bytes")
    @ValueSource(ints = {64, 512, 1024})
    void reportsOfOtherSizesAreReadFromTheNextOpeningOn(int size) {
        change(size, "");
        Device hid = openHid();
        reopenWith(hid, size);
        byte[] sent = pattern(size + size / 2);
        assertEquals(sent.length, writeEx(hid, sent, size, 0xFF));
        assertSent(Arrays.copyOf(sent, size), filled(Arrays.copyOfRange(sent, size, sent.length), size, 0xFF));
        byte[] echo = new byte[2 * size];
        assertEquals(echo.length, readEx(hid, echo, size));
        assertArrayEquals(filled(sent, 2 * size, 0xFF), echo);
    }

    @Test
    void theMakersSecondVendorStartsWithLargeReports() {
        change(LARGE_REPORT, ", \"vendorId\": \"0x6A5D\"");
        Device hid = openHid();
        // The first plain call, which asked whether the device is open, has ended that.
        assertEquals(0, hid.close());
        assertEquals(0, hid.open());
        bus.feed(ID, IN, pattern(LARGE_REPORT));
        byte[] report = new byte[LARGE_REPORT];
        assertEquals(LARGE_REPORT, readEx(hid, report, LARGE_REPORT));
        assertArrayEquals(pattern(LARGE_REPORT), report);
        assertEquals(3, write(hid, pattern(3)));
        assertSent(filled(pattern(3), REPORT, 0x5A));
    }

    @ParameterizedTest(name = "packet size {0}")
    @ValueSource(ints = {63, 1025})
    void aPacketSizeOutOfRangeIsRefused(int packetSize) {
        Device hid = openHid();
        assertEquals(-114, writeEx(hid, pattern(3), packetSize, 0));
        assertEquals(-114, readEx(hid, new byte[3], packetSize));
        assertSent();
    }

    @Test
    void theRestOfAReportIsDropped() {
        Device hid = openHid();
        bus.feed(ID, IN, numbered(0x01020304, 2));
        byte[] start = new byte[2];
        assertEquals(2, read(hid, start));
        assertArrayEquals(new byte[] {1, 2}, start);
        byte[] next = new byte[4];
        assertEquals(4, read(hid, next));
        assertArrayEquals(new byte[] {1, 2, 3, 5}, next);
    }

    @Test
    void aReadWithoutTimeHasNothingEvenWhenReportsWait() {
        Device hid = openHid();
        byte[] buffer = new byte[2 * REPORT];
        bus.feed(ID, IN, numbered(1, 2));
        assertEquals(REPORT, read(hid, new byte[REPORT]));
        assertEquals(-150, read(hid, buffer, 0));
        assertEquals(-150, readEx(hid, buffer, 0, REPORT));
        assertArrayEquals(new byte[2 * REPORT], buffer);
        assertEquals(REPORT, read(hid, new byte[REPORT]));
    }

    @Test
    void aReadOfNoBytesEatsReportsUntilItsTimeIsUp() {
        Device hid = openHid();
        bus.feed(ID, IN, numbered(1, 4));
        assertEquals(REPORT, read(hid, new byte[REPORT]));
        assertEquals(-150, read(hid, new byte[0], BRIEF));
        assertEquals(-150, read(hid, new byte[1], BRIEF));
    }

    @Test
    void aNegativeLengthWritesNothingAndEatsReportsLikeAReadOfNoBytes() {
        Device hid = openHid();
        assertEquals(0, usb.usbWriteInterruptPipe(hid.list(), hid.index(), OUT, -1, Device.AMPLE, pattern(3)));
        assertSent();
        bus.feed(ID, IN, numbered(1, 4));
        assertEquals(REPORT, read(hid, new byte[REPORT]));
        assertEquals(-150, usb.usbReadInterruptPipe(hid.list(), hid.index(), IN, -1, BRIEF, new byte[REPORT]));
        assertEquals(-150, read(hid, new byte[1], BRIEF));
    }

    @ParameterizedTest(name = "time-out {0}")
    @ValueSource(ints = {1, 0, -1})
    void aWriteDoesNotLookAtItsTimeOut(int timeout) {
        Device hid = openHid();
        bus.endpoint(ID, OUT, "{\"delayMs\": 100}");
        assertEquals(REPORT, usb.usbWriteInterruptPipe(hid.list(), hid.index(), OUT, REPORT, timeout, pattern(REPORT)));
        assertSent(pattern(REPORT));
    }

    /** Some kernels do not hand such a report out. */
    @Test
    @Tag("memory")
    void behindTheBytesOfAShortReportStandsWhatIsLeftOfEarlierOnes() {
        Device hid = openHid();
        byte[] report = new byte[REPORT];
        bus.feed(ID, IN, pattern(REPORT));
        assertEquals(REPORT, read(hid, report));
        bus.feed(ID, IN, new byte[] {99, 98, 97});
        assertEquals(REPORT, read(hid, report));
        byte[] expected = pattern(REPORT);
        System.arraycopy(new byte[] {99, 98, 97}, 0, expected, 0, 3);
        assertArrayEquals(expected, report);
    }

    @Test
    void bytesThatCameBeforeTheTimeRanOutAreInTheBuffer() {
        Device hid = openHid();
        bus.feed(ID, IN, pattern(REPORT));
        byte[] buffer = new byte[REPORT + 1];
        assertEquals(-150, read(hid, buffer, BRIEF));
        assertArrayEquals(Arrays.copyOf(pattern(REPORT), REPORT + 1), buffer);
    }

    @Test
    void noReportIsLostWhileTheReaderKeepsUp() {
        Device hid = openHid();
        for (int first = 0; first < 5000; first += BATCH) {
            byte[] reports = new byte[BATCH * REPORT];
            bus.feed(ID, IN, numbered(first, BATCH));
            assertEquals(reports.length, read(hid, reports));
            assertArrayEquals(numbered(first, BATCH), reports, "reports from " + first);
        }
        assertEquals(-150, read(hid, new byte[1], BRIEF));
    }

    @Test
    @Tag("memory")
    void ofMoreReportsThanThereIsRoomForTheNewestAreKept() {
        Device hid = openHid();
        feedToTheLibrary(0, 1500);
        assertHolds(hid, 1500 - ROOM, ROOM);
    }

    @Test
    @Tag("memory")
    void nothingIsDroppedWhileThereIsRoom() {
        Device hid = openHid();
        feedToTheLibrary(0, ROOM);
        assertHolds(hid, 0, ROOM);
    }

    @Test
    @Tag("memory")
    void reportsThatNobodyReadAreThereAfterTheNextOpening() {
        Device hid = openHid();
        feedToTheLibrary(0, BATCH);
        assertEquals(0, hid.close());
        assertEquals(0, hid.open());
        feedToTheLibrary(BATCH, BATCH);
        assertHolds(hid, 0, 2 * BATCH);
    }

    @Test
    void whatTheDeviceHadToSayBeforeItWasOpenedIsNotHeard() {
        Device hid = openHid();
        if (bus.isMemory()) {
            assertFalse(hearsWhatCameBefore(hid));
        } else { // a kernel drops what comes within 50 ms of the opening; a busy machine may take longer
            await("what came before is dropped", () -> !hearsWhatCameBefore(hid));
        }
    }

    /** Whether an opening lets reports through that the device sent before. */
    private boolean hearsWhatCameBefore(Device hid) {
        assertEquals(0, hid.close());
        bus.feed(ID, IN, numbered(1, 3));
        assertEquals(0, hid.open());
        bus.feed(ID, IN, pattern(REPORT));
        byte[] report = new byte[REPORT];
        assertEquals(REPORT, read(hid, report));
        int heard = 0;
        while (heard < 3 && !Arrays.equals(pattern(REPORT), report)) {
            heard++;
            assertEquals(REPORT, read(hid, report));
        }
        assertArrayEquals(pattern(REPORT), report);
        return heard > 0;
    }

    private void assertHolds(Device hid, int first, int count) {
        byte[] reports = new byte[count * REPORT];
        assertEquals(reports.length, read(hid, reports));
        assertArrayEquals(numbered(first, count), reports);
        assertEquals(-150, read(hid, new byte[1], BRIEF));
    }

    /** Feeds reports and comes back when the library has them all. */
    private void feedToTheLibrary(int first, int count) {
        for (int done = 0; done < count; done += BATCH) {
            int batch = Math.min(BATCH, count - done);
            int before = bus.calls("hid report taken");
            bus.feed(ID, IN, numbered(first + done, batch));
            await("the bus has handed out the reports", () -> bus.pending(ID, IN) == 1);
            await("the library has them", () -> bus.calls("hid report taken") >= before + batch);
        }
    }
}
