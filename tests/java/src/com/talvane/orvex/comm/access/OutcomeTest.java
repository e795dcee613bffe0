package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import com.talvane.orvex.comm.UsbAccessCode;
import com.talvane.orvex.comm.access.Connection.Moved;
import com.talvane.orvex.comm.access.Connection.ReportFormat;
import java.util.Map;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** What callers get for the results of raw calls, from a device that answers the question for its status as told. */
@Tag("memory")
class OutcomeTest {
    private static final int LENGTH = 10;
    private static final int IO = UsbAccessCode.IO.code();
    private static final int NOT_OPEN = UsbAccessCode.NOT_OPEN.code();
    private static final int TIMED_OUT = UsbAccessCode.TIMED_OUT.code();
    private static final int WRITE_FAILED = UsbAccessCode.WRITE_FAILED.code();

    /** The result of the raw call that asks for the status, and the lowest bit of the status. */
    private int answered = 2;
    private boolean isHalted;
    private boolean isAbsent;
    private int questions;
    private Runnable whileAsked = () -> { };
    private final ORVEXCommUSBAccess usb = new ORVEXCommUSBAccess() {
        @Override
        public int usbReadControlPipe(int list, int index, int ignored, int timeout, byte[] buffer) {
            questions++;
            whileAsked.run();
            buffer[Setup.PACKET_BYTES] = (byte) (isHalted ? 1 : 0);
            return answered;
        }
    };
    private final Connection connection = new Connection(usb,
            new Target(0, 0, false, "TOOL", () -> isAbsent, () -> isAbsent), ReportFormat.ofVendor(0), Map.of());
    private final Outcome outcome = new Outcome(connection, "move through", 0x81);

    @AfterEach
    void clearTheStatus() {
        Thread.interrupted();
    }

    private static UsbException assertFails(UsbAccessCode code, int moved, Executable call) {
        UsbException failure = assertThrows(UsbException.class, call);
        assertEquals(code, failure.code());
        assertEquals(moved, failure.moved());
        return failure;
    }

    private static void assertGone(int moved, Executable call) {
        UsbException failure = assertFails(UsbAccessCode.NO_DEVICE, moved, call);
        assertEquals(UsbDeviceGoneException.class, failure.getClass());
    }

    @Test
    void anExceptionTellsWhatWasAttemptedWhere() {
        assertEquals("move through endpoint 0x81 of TOOL", outcome.attempted());
        assertEquals("write to TOOL", new Outcome(connection, "write to", 0).attempted());
    }

    @Test
    void nobodyAsksTheDeviceWhenBytesHaveMovedOrNoneWereToMove() throws UsbException {
        for (int length : new int[] {0, LENGTH}) {
            assertEquals(length, outcome.ofRead(length, length));
            assertEquals(length, outcome.ofWrite(length, length));
            assertEquals(length, outcome.ofControl(length, length, true));
            assertEquals(length, outcome.ofReadReports(length, new Moved(length, length)));
            assertEquals(length, outcome.ofWriteReports(length, new Moved(length, length)));
        }
        assertEquals(3, outcome.ofRead(LENGTH, 3));
        assertEquals(3, outcome.ofWrite(LENGTH, 3));
        assertEquals(3, outcome.ofControl(LENGTH, 3, true));
        assertEquals(3, outcome.ofReadReports(LENGTH, new Moved(3, TIMED_OUT)));
        assertEquals(0, questions);
    }

    @Test
    void moreThanWasAskedForIsTooMuch() {
        assertThrows(UsbOverflowException.class, () -> outcome.ofRead(LENGTH, LENGTH + 1));
    }

    @Test
    void nothingIsAnEmptyPacketWhenTheDeviceIsAllRight() throws UsbException {
        assertEquals(0, outcome.ofRead(LENGTH, 0));
        assertEquals(1, questions);
        assertFails(UsbAccessCode.IO, 0, () -> outcome.ofWrite(LENGTH, 0));
        assertEquals(2, questions);
    }

    @Test
    void nothingFromAnEndpointThatIsHaltedIsAStall() {
        isHalted = true;
        assertThrows(UsbStalledException.class, () -> outcome.ofRead(LENGTH, 0));
        assertThrows(UsbStalledException.class, () -> outcome.ofWrite(LENGTH, 0));
    }

    @Test
    void nothingFromADeviceThatDoesNotAnswerIsAFailure() {
        answered = 0;
        assertFails(UsbAccessCode.IO, 0, () -> outcome.ofRead(LENGTH, 0));
        assertFails(UsbAccessCode.IO, 0, () -> outcome.ofWrite(LENGTH, 0));
    }

    @Test
    void aDeviceThatCannotBeAskedIsGone() {
        answered = IO;
        assertGone(0, () -> outcome.ofRead(LENGTH, 0));
        assertGone(0, () -> outcome.ofControl(LENGTH, 0, false));
        assertGone(0, () -> outcome.ofWrite(LENGTH, IO));
    }

    @Test
    void aDeviceThatIsAbsentIsGone() {
        isAbsent = true;
        assertGone(0, () -> outcome.ofRead(LENGTH, 0));
        assertGone(0, () -> outcome.ofControl(LENGTH, 0, false));
        assertGone(0, () -> outcome.ofWrite(LENGTH, IO));
        assertGone(0, () -> outcome.ofReadReports(LENGTH, new Moved(0, TIMED_OUT)));
        assertGone(4, () -> outcome.ofWriteReports(LENGTH, new Moved(4, WRITE_FAILED)));
    }

    @Test
    void aRawCallThatFindsNoOpenDeviceMeetsOneThatIsGone() {
        assertGone(0, () -> outcome.ofRead(LENGTH, NOT_OPEN));
        assertGone(0, () -> outcome.ofReadReports(LENGTH, new Moved(0, NOT_OPEN)));
        assertGone(4, () -> outcome.ofWriteReports(LENGTH, new Moved(4, NOT_OPEN)));
        assertEquals(0, questions);
    }

    @Test
    void aControlRequestThatMovedNothingStalledOrTookTooLong() {
        answered = 0;
        assertThrows(UsbStalledException.class, () -> outcome.ofControl(LENGTH, 0, false));
        assertThrows(UsbTimeoutException.class, () -> outcome.ofControl(LENGTH, 0, true));
        assertEquals(2, questions);
    }

    @Test
    void aFailureOfADeviceThatIsThereHasTheCodeOfTheRawCall() {
        assertFails(UsbAccessCode.IO, 0, () -> outcome.ofRead(LENGTH, IO));
        assertFails(UsbAccessCode.IO, 0, () -> outcome.ofControl(LENGTH, IO, false));
        assertEquals(2, questions);
        assertFails(UsbAccessCode.TIMED_OUT, 0, () -> outcome.ofReadReports(LENGTH, new Moved(0, TIMED_OUT)));
        assertFails(UsbAccessCode.WRITE_FAILED, 4,
                () -> outcome.ofWriteReports(LENGTH, new Moved(4, WRITE_FAILED)));
        assertEquals(2, questions);
    }

    @Test
    void whetherADeviceThatTakesTooLongIsThereIsNotAsked() {
        answered = IO;
        assertFails(UsbAccessCode.TIMED_OUT, 0, () -> outcome.ofRead(LENGTH, TIMED_OUT));
        assertEquals(0, questions);
    }

    @Test
    void aDeviceThatWasClosedMeanwhileIsNotGone() {
        connection.end();
        assertThrows(IllegalStateException.class, () -> outcome.ofRead(LENGTH, 0));
        assertThrows(IllegalStateException.class, () -> outcome.ofRead(LENGTH, NOT_OPEN));
        assertThrows(IllegalStateException.class, () -> outcome.ofRead(LENGTH, TIMED_OUT));
        assertThrows(IllegalStateException.class, () -> outcome.ofWrite(LENGTH, IO));
        assertThrows(IllegalStateException.class, () -> outcome.ofControl(LENGTH, 0, false));
        assertThrows(IllegalStateException.class, () -> outcome.ofReadReports(LENGTH, new Moved(0, TIMED_OUT)));
        assertThrows(IllegalStateException.class, () -> outcome.ofReadReports(LENGTH, new Moved(0, NOT_OPEN)));
        assertTrue(connection.hasEnded());
    }

    @Test
    void aDeviceThatIsClosedWhileItIsAskedIsNotStalled() {
        isHalted = true;
        whileAsked = connection::end;
        assertThrows(IllegalStateException.class, () -> outcome.ofRead(LENGTH, 0));
    }

    @Test
    void aDeviceThatIsClosedWhileItIsAskedHasRefusedNoRequest() {
        whileAsked = connection::end;
        assertThrows(IllegalStateException.class, () -> outcome.ofControl(LENGTH, 0, false));
    }

    @Test
    void anInterruptIsToldUnlessEverythingMoved() throws UsbException {
        Thread.currentThread().interrupt();
        assertEquals(LENGTH, outcome.ofRead(LENGTH, LENGTH));
        assertEquals(LENGTH, outcome.ofWriteReports(LENGTH, new Moved(LENGTH, 1)));
        for (int moved : new int[] {0, 4}) {
            assertInterrupted(moved, () -> outcome.ofRead(LENGTH, moved));
            assertInterrupted(moved, () -> outcome.ofWriteReports(LENGTH, new Moved(moved, 1)));
        }
        assertInterrupted(0, () -> outcome.ofWrite(LENGTH, IO));
        assertInterrupted(0, () -> outcome.ofRead(0, 0));
        assertInterrupted(0, () -> outcome.ofReadReports(0, new Moved(0, 0)));
        assertEquals(0, questions);
    }

    private static void assertInterrupted(int moved, Executable call) {
        assertEquals(moved, assertThrows(UsbInterruptedException.class, call).moved());
    }
}
