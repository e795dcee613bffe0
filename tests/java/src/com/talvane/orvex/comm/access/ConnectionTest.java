package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import com.talvane.orvex.comm.UsbAccessCode;
import com.talvane.orvex.comm.access.Connection.Moved;
import com.talvane.orvex.comm.access.Connection.RawCall;
import com.talvane.orvex.comm.access.Connection.ReportFormat;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.IntSupplier;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.Timeout.ThreadMode;

/** Which raw calls a connection makes, on raw calls that answer what a test wants. */
@Tag("memory")
@Timeout(value = 60, threadMode = ThreadMode.SEPARATE_THREAD)
class ConnectionTest {
    private static final int REPORT = 64;
    private static final int TIMED_OUT = UsbAccessCode.TIMED_OUT.code();

    private final AtomicInteger reads = new AtomicInteger();
    private final AtomicInteger writes = new AtomicInteger();
    private final AtomicInteger glances = new AtomicInteger();
    private final Set<Integer> cancelled = ConcurrentHashMap.newKeySet();
    private final CountDownLatch hasBegun = new CountDownLatch(1);
    private final CountDownLatch mayEnd = new CountDownLatch(1);
    private int resultOfARequest = 1;
    private IntSupplier resultOfAReport = () -> REPORT;
    private int glancesUntilAbsent = Integer.MAX_VALUE;
    private final Connection connection = new Connection(new RawCalls(),
            new Target(0, 0, true, "TOOL", () -> false, () -> glances.incrementAndGet() >= glancesUntilAbsent),
            ReportFormat.ofVendor(0), Map.of());

    /** The raw calls of one device. No report comes from it, and every cancel finds a transfer. */
    private final class RawCalls extends ORVEXCommUSBAccess {
        @Override
        public int usbReadControlPipe(int list, int index, int ignored, int timeout, byte[] buffer) {
            buffer[buffer.length - 1] = 1;
            buffer[buffer.length - 2] = 1;
            return resultOfARequest;
        }

        @Override
        public int usbWriteControlPipe(int list, int index, int ignored, int timeout, byte[] buffer) {
            return 2;
        }

        @Override
        public int usbReadInterruptPipeEx(
                int list, int index, int endpoint, int length, int timeout, byte[] buffer, int packet, int fill) {
            reads.incrementAndGet();
            return TIMED_OUT;
        }

        @Override
        public int usbWriteInterruptPipeEx(
                int list, int index, int endpoint, int length, int timeout, byte[] buffer, int packet, int fill) {
            writes.incrementAndGet();
            return resultOfAReport.getAsInt();
        }

        @Override
        public int usbCancelPipeTransfer(int list, int index, int endpoint) {
            cancelled.add(endpoint);
            return 0;
        }

        @Override
        public int usbResetDevice(int list, int index) {
            return 0;
        }
    }

    /** A thread in a read from a pipe, which lasts until it may end. */
    private Thread reader() throws InterruptedException {
        RawCall lasting = (usb, list, index, endpoint, length, timeout, bytes) -> {
            hasBegun.countDown();
            while (mayEnd.getCount() > 0) {
                Thread.onSpinWait();
            }
            return 1;
        };
        Thread thread = new Thread(() -> connection.read(lasting, 0x81, Deadline.FOREVER, new byte[1]));
        thread.setDaemon(true);
        thread.start();
        hasBegun.await();
        return thread;
    }

    private static byte[] request(int requestType) {
        return Setup.bytes(requestType, 1, 0, 0, new byte[1]);
    }

    @Test
    void aControlRequestIsMadeWithTheRawCallOfItsDirection() {
        assertEquals(1, connection.control(request(0xC0), 1000));
        assertEquals(2, connection.control(request(0x40), 1000));
    }

    @Test
    void reportsAreWrittenOneByOneWithoutAnEmptyOne() {
        assertEquals(new Moved(2 * REPORT, REPORT), connection.writeReports(1000, new byte[2 * REPORT]));
        assertEquals(2, writes.get());
    }

    @Test
    void afterAReportOfWhichNothingWasWrittenNoneIsTried() {
        resultOfAReport = () -> 0;
        assertEquals(new Moved(0, 0), connection.writeReports(1000, new byte[2 * REPORT]));
        assertEquals(1, writes.get());
    }

    /** The looks count from the beginning of the read, and each takes the session lock. */
    @Test
    void aReadOfReportsLooksTenTimesASecondWhetherTheDeviceIsThere() {
        glancesUntilAbsent = 5;
        long start = System.nanoTime();
        assertEquals(new Moved(0, TIMED_OUT), connection.readReports(Deadline.FOREVER, new byte[REPORT]));
        long milliseconds = TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - start);
        assertEquals(5, glances.get());
        assertTrue(milliseconds >= 500, () -> "after " + milliseconds + " ms");
    }

    /** A read that sleeps looks four times in 15 ms; one whose answer is awaited looks all the time. */
    @Test
    void aReadDoesNotSleepWhileAReportIsWrittenAndSoonAfter() {
        AtomicInteger most = new AtomicInteger();
        resultOfAReport = () -> {
            int before = reads.get();
            connection.readReports(15, new byte[REPORT]);
            most.accumulateAndGet(reads.get() - before, Math::max);
            return REPORT;
        };
        connection.readReports(30, new byte[REPORT]); // from the opening on it does not sleep at once
        Deadline deadline = new Deadline(30_000);
        while (most.get() < 100 && !deadline.isOver()) {
            connection.writeReports(1000, new byte[REPORT]);
        }
        assertTrue(most.get() >= 100, () -> most + " looks");
    }

    @Test
    void aResetCancelsNothingButReadsFromPipes() throws InterruptedException {
        connection.control(request(0xC0), 1000);
        connection.writeReports(1000, new byte[1]);
        connection.readReports(1, new byte[1]);
        Thread reader = reader();
        Thread end = new Thread(() -> {
            while (cancelled.isEmpty()) {
                Thread.onSpinWait();
            }
            mayEnd.countDown();
        });
        end.start();
        assertEquals(0, connection.reset());
        assertEquals(Set.of(0x81), cancelled);
        reader.join();
        end.join();
    }

    @Test
    void whoInterruptsAReadThatACancelDoesNotEndWaitsNotForever() throws InterruptedException {
        Thread reader = reader();
        reader.interrupt();
        assertEquals(Set.of(0x81), cancelled);
        assertTrue(reader.isAlive());
        mayEnd.countDown();
        reader.join();
    }

    @Test
    void aStatusThatHasFailedHasNoBitWhateverCameBefore() {
        assertEquals(new Connection.Status(true, true, true), connection.status(2, 0x81));
        resultOfARequest = 0;
        assertEquals(new Connection.Status(true, false, false), connection.status(2, 0x81));
        resultOfARequest = TIMED_OUT;
        assertEquals(new Connection.Status(false, false, false), connection.status(2, 0x81));
    }
}
