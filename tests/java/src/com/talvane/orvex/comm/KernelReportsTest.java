package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.io.InputStream;
import java.nio.ByteBuffer;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** The kernel's handling of reports that the library has not read yet, and of those that a device does not accept. */
@Tag("kernel")
class KernelReportsTest extends HidTest {
    /** Reports that the kernel keeps for an open file until they are read. */
    private static final int QUEUE = 63;

    /** The node of the HID device with this serial number. */
    private static Path node(String serial) throws IOException {
        try (DirectoryStream<Path> nodes = Files.newDirectoryStream(Path.of("/sys/class/hidraw"))) {
            for (Path node : nodes) {
                if (Files.readString(node.resolve("device/uevent")).contains("HID_UNIQ=" + serial + "\n")) {
                    return Path.of("/dev").resolve(node.getFileName());
                }
            }
        }
        throw new AssertionError("the kernel has no HID device " + serial);
    }

    private static int numberOfNext(InputStream node) throws Exception {
        return result(onAnotherThread(() -> {
            byte[] report = new byte[REPORT];
            assertEquals(REPORT, node.read(report));
            return ByteBuffer.wrap(report).getInt();
        }));
    }

    /** Which of the two depends on the kernel's version. */
    @Test
    void aReportThatIsShorterThanDeclaredIsGivenAsAWholeOneOrNotAtAll() {
        Device hid = openHid();
        byte[] report = new byte[REPORT];
        byte[] earlier = filled(new byte[0], REPORT, 5);
        byte[] later = pattern(REPORT);
        byte[] shorter = {99, 98, 97};
        bus.feed(ID, IN, earlier);
        assertEquals(REPORT, read(hid, report));
        bus.feed(ID, IN, shorter);
        bus.feed(ID, IN, later);
        assertEquals(REPORT, read(hid, report));
        boolean isGiven = report[0] == shorter[0];
        System.out.println("a report that is too short is " + (isGiven ? "given" : "not given"));
        if (isGiven) {
            assertArrayEquals(filled(shorter, REPORT, 5), report, "behind it stands what is left of the earlier one");
            assertEquals(REPORT, read(hid, report));
        }
        assertArrayEquals(later, report);
        assertEquals(-150, read(hid, new byte[1], BRIEF));
    }

    @Test
    void ofReportsThatNobodyTakesTheOldestAreKept() throws Exception {
        plugHid();
        try (InputStream node = Files.newInputStream(node(SERIAL))) {
            bus.feed(ID, IN, numbered(0, QUEUE + 10));
            await("the kernel has taken the reports", () -> bus.pending(ID, IN) == 1);
            for (int i = 0; i < QUEUE; i++) {
                assertEquals(i, numberOfNext(node));
            }
            bus.feed(ID, IN, numbered(1000, 1));
            assertEquals(1000, numberOfNext(node));
        }
    }

    @Test
    void aReportThatTheDeviceDoesNotTakeIsGivenUpAfterSomeSeconds() {
        Device hid = openHid();
        bus.endpoint(ID, OUT, "{\"behaviour\": \"silent\"}");
        long before = System.nanoTime();
        assertEquals(-112, usb.usbWriteInterruptPipe(hid.list(), hid.index(), OUT, REPORT, 1, pattern(REPORT)));
        long seconds = TimeUnit.NANOSECONDS.toSeconds(System.nanoTime() - before);
        assertTrue(seconds >= 4 && seconds < 30, () -> "after " + seconds + " s");
    }
}
