package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.access.Observed.Found;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;
import java.util.stream.Collectors;
import jdk.jfr.Recording;
import jdk.jfr.ValueDescriptor;
import jdk.jfr.consumer.RecordedEvent;
import jdk.jfr.consumer.RecordingFile;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** What a flight recorder gets. */
@Tag("memory")
class UsbRecordingTest extends AccessTest {
    private static final String TRANSFER = "com.talvane.orvex.Transfer";
    private static final String DEVICE = "com.talvane.orvex.Device";
    private static final String LIST_UPDATE = "com.talvane.orvex.ListUpdate";
    private static final List<String> FIELDS_OF_ALL_EVENTS =
            List.of("startTime", "duration", "eventThread", "stackTrace");
    private static final int BRIEF = 50;

    @TempDir
    Path folder;

    /** The events of this package, in the order of their ends, after some work. */
    private List<RecordedEvent> recorded(Executable work) throws Exception {
        Path file = folder.resolve("recording.jfr");
        try (Recording recording = new Recording()) {
            recording.start();
            run(work);
            recording.stop();
            recording.dump(file);
        }
        return RecordingFile.readAllEvents(file).stream()
                .filter(event -> event.getEventType().getName().startsWith("com.talvane."))
                .sorted((one, other) -> one.getEndTime().compareTo(other.getEndTime()))
                .toList();
    }

    private static void run(Executable work) throws Exception {
        try {
            work.execute();
        } catch (Exception | Error e) {
            throw e;
        } catch (Throwable e) {
            throw new AssertionError(e);
        }
    }

    private List<String> transfers(Executable work) throws Exception {
        return told(recorded(work), TRANSFER);
    }

    private static List<String> told(List<RecordedEvent> events, String type) {
        return events.stream()
                .filter(event -> event.getEventType().getName().equals(type))
                .map(UsbRecordingTest::told)
                .toList();
    }

    /** The values of the fields that are this project's own. */
    private static String told(RecordedEvent event) {
        return event.getFields().stream()
                .map(ValueDescriptor::getName)
                .filter(name -> !FIELDS_OF_ALL_EVENTS.contains(name))
                .map(name -> name + "=" + event.getValue(name))
                .sorted()
                .collect(Collectors.joining(" "));
    }

    @Test
    void transfersAreRecordedWithWhatWasAskedForAndWhatMoved() throws Exception {
        UsbDevice bench = open(BENCH);
        byte[] bytes = new byte[64];
        assertEquals(
                List.of("asked=10 code=0 device=BENCH00001 direction=out endpoint=0x01 kind=pipe moved=10 outcome=OK",
                        "asked=64 code=0 device=BENCH00001 direction=in endpoint=0x81 kind=pipe moved=10 outcome=OK",
                        "asked=3 code=0 device=BENCH00001 direction=out endpoint=0x00 kind=control moved=3 outcome=OK",
                        "asked=9 code=0 device=BENCH00001 direction=in endpoint=0x80 kind=control moved=3 outcome=OK"),
                transfers(() -> {
                    bench.writeBulk(0x01, bytes, 0, 10, AMPLE);
                    bench.readBulk(0x81, bytes, 0, 64, AMPLE);
                    bench.writeControl(0x40, 1, 0, 0, new byte[3], AMPLE);
                    bench.readControl(0xC0, 1, 0, 0, 9, AMPLE);
                }));
    }

    @Test
    void transfersThatFailAreRecordedWithTheirCode() throws Exception {
        UsbDevice bench = open(BENCH);
        byte[] bytes = new byte[64];
        assertEquals(
                List.of("asked=64 code=-150 device=BENCH00001 direction=in endpoint=0x84 kind=pipe moved=0"
                                + " outcome=TIMED_OUT",
                        "asked=64 code=-9 device=BENCH00001 direction=out endpoint=0x05 kind=pipe moved=0 outcome=PIPE",
                        "asked=4 code=-9 device=BENCH00001 direction=in endpoint=0x80 kind=control moved=0"
                                + " outcome=PIPE",
                        "asked=64 code=0 device=BENCH00001 direction=out endpoint=0x01 kind=pipe moved=64 outcome=OK",
                        "asked=10 code=-8 device=BENCH00001 direction=in endpoint=0x81 kind=pipe moved=10"
                                + " outcome=OVERFLOW"),
                transfers(() -> {
                    assertThrows(UsbTimeoutException.class, () -> bench.readBulk(0x84, bytes, 0, 64, BRIEF));
                    assertThrows(UsbStalledException.class, () -> write(bench, 0x05, bytes));
                    assertThrows(UsbStalledException.class, () -> bench.readControl(0xC0, 3, 0, 0, 4, AMPLE));
                    write(bench, 0x01, bytes);
                    assertThrows(UsbOverflowException.class, () -> bench.readBulk(0x81, bytes, 0, 10, AMPLE));
                }));
    }

    @Test
    void whatIsRefusedIsNoTransfer() throws Exception {
        UsbDevice bench = open(BENCH);
        assertEquals(List.of(), transfers(() -> {
            assertThrows(IllegalArgumentException.class, () -> write(bench, 0x81, new byte[1]));
            assertThrows(IndexOutOfBoundsException.class, () -> bench.readBulk(0x81, new byte[1], 1, 1, AMPLE));
            assertThrows(IllegalStateException.class, () -> write(device(PAIR), 0x01, new byte[1]));
        }));
    }

    @Test
    void aTransferLastsAsLongAsItsCaller() throws Exception {
        UsbDevice bench = open(BENCH);
        long[] took = {0};
        RecordedEvent event = recorded(() -> {
            long start = System.nanoTime();
            assertThrows(UsbTimeoutException.class, () -> bench.readBulk(0x84, new byte[64], 0, 64, BRIEF));
            took[0] = System.nanoTime() - start;
        }).get(0);
        long nanos = event.getDuration().toNanos();
        assertTrue(nanos >= TimeUnit.MILLISECONDS.toNanos(BRIEF) && nanos <= took[0], nanos + " of " + took[0]);
        assertEquals(Thread.currentThread().getName(), event.getThread().getJavaName());
    }

    @Test
    void aCloseInTheMiddleIsRecorded() throws Exception {
        UsbDevice bench = open(BENCH);
        List<RecordedEvent> events = recorded(() -> {
            Future<Integer> reader = whileWaiting("bench", 0x84, () -> read(bench, 0x84, new byte[64]));
            bench.close();
            failure(IllegalStateException.class, reader);
        });
        assertEquals(
                List.of("asked=64 code=-109 device=BENCH00001 direction=in endpoint=0x84 kind=pipe moved=0"
                        + " outcome=CLOSED"),
                told(events, TRANSFER));
        assertEquals(List.of("call=close code=0 device=BENCH00001 outcome=OK"), told(events, DEVICE));
    }

    @Test
    void reportsAreRecorded() throws Exception {
        UsbDevice hid = pluggedHid().open();
        byte[] report = new byte[64];
        assertEquals(
                List.of("asked=64 code=0 device=HIDT0021 direction=out endpoint=0x00 kind=reports moved=64 outcome=OK",
                        "asked=64 code=0 device=HIDT0021 direction=in endpoint=0x80 kind=reports moved=64 outcome=OK",
                        "asked=64 code=-150 device=HIDT0021 direction=in endpoint=0x80 kind=reports moved=0"
                                + " outcome=TIMED_OUT"),
                transfers(() -> {
                    hid.writeReports(report, 0, 64, AMPLE);
                    hid.readReports(report, 0, 64, AMPLE);
                    assertThrows(UsbTimeoutException.class, () -> hid.readReports(report, 0, 64, BRIEF));
                }));
    }

    @Test
    void opensClosesAndResetsAreRecorded() throws Exception {
        bus.plug("modem");
        UsbDevice modem = device("MODEM006");
        UsbDevice bench = device(BENCH);
        assertEquals(
                List.of("call=open code=0 device=BENCH00001 outcome=OK",
                        "call=reset code=0 device=BENCH00001 outcome=OK",
                        "call=close code=0 device=BENCH00001 outcome=OK",
                        "call=open code=-158 device=MODEM006 outcome=UNSUPPORTED_CLASS"),
                told(recorded(() -> {
                    bench.open();
                    assertThrows(IllegalStateException.class, bench::open);
                    bench.reset();
                    bench.close();
                    bench.close();
                    assertThrows(UsbException.class, modem::open);
                }), DEVICE));
    }

    @Test
    void theUpdatesOfListsAreRecordedWithWhatTheyFind() throws Exception {
        UsbDeviceList list = list();
        List<String> events = told(recorded(() -> {
            list.update();
            bus.plug("spare");
            await("it came", () -> !unchecked(list::update).came().isEmpty());
            bus.unplug("bench");
            await("it left", () -> !unchecked(list::update).left().isEmpty());
            bus.plug("bench");
            await("it is back", () -> !unchecked(list::update).came().isEmpty());
        }), LIST_UPDATE);
        String nothing = "came=0 code=0 left=0 outcome=OK";
        assertEquals(nothing, events.get(0));
        assertEquals(List.of("came=1 code=0 left=0 outcome=OK", "came=0 code=0 left=1 outcome=OK",
                        "came=1 code=0 left=0 outcome=OK"),
                events.stream().filter(event -> !event.equals(nothing)).toList());
    }

    @Test
    void anUpdateThatFailsIsRecorded() throws Exception {
        Found none = new Found(0, 0);
        assertEquals(List.of("came=0 code=-11 left=0 outcome=NO_MEMORY", "came=0 code=-42 left=0 outcome=OTHER"),
                told(recorded(() -> {
                    assertEquals(-11, Observed.update(() -> -11, () -> none));
                    assertEquals(-42, Observed.update(() -> -42, () -> none));
                }), LIST_UPDATE));
    }

    @Test
    @Tag("unemulated")
    void aRecordingMayBeginWhileTheProgramRuns() throws Exception {
        UsbDevice bench = open(BENCH);
        Path file = folder.resolve("late.jfr");
        write(bench, 0x01, new byte[1]);
        jcmd("JFR.start", "name=late");
        write(bench, 0x01, new byte[2]);
        jcmd("JFR.stop", "name=late", "filename=" + file);
        write(bench, 0x01, new byte[3]);
        assertEquals(
                List.of("asked=2 code=0 device=BENCH00001 direction=out endpoint=0x01 kind=pipe moved=2 outcome=OK"),
                told(RecordingFile.readAllEvents(file), TRANSFER));
    }

    private void jcmd(String... words) throws Exception {
        List<String> command = new ArrayList<>(List.of(Path.of(System.getProperty("java.home"), "bin/jcmd").toString(),
                Long.toString(ProcessHandle.current().pid())));
        command.addAll(List.of(words));
        Path output = folder.resolve("jcmd.txt");
        Process process = new ProcessBuilder(command).redirectErrorStream(true).redirectOutput(output.toFile()).start();
        assertTrue(process.waitFor(AMPLE, TimeUnit.MILLISECONDS));
        assertEquals(0, process.exitValue(), Files.readString(output));
    }

    @Test
    void noEventIsMadeWithoutARecordingNorWhereItIsDisabled() throws Exception {
        UsbDevice bench = open(BENCH);
        assertFalse(recorded(() -> write(bench, 0x01, new byte[1])).isEmpty());
        assertSame(Flight.NONE, TransferEvent.start("pipe", BENCH, 0x01, 1));
        assertSame(Flight.NONE, DeviceEvent.start("open", BENCH));
        assertSame(Flight.NONE, ListEvent.start());
        try (Recording recording = new Recording()) {
            recording.disable(TRANSFER);
            recording.start();
            assertSame(Flight.NONE, TransferEvent.start("pipe", BENCH, 0x01, 1));
            recording.enable(TRANSFER).withThreshold(Duration.ofHours(1));
            write(bench, 0x01, new byte[1]);
            recording.stop();
            recording.dump(folder.resolve("none.jfr"));
        }
        assertEquals(List.of(), RecordingFile.readAllEvents(folder.resolve("none.jfr")).stream()
                .filter(event -> event.getEventType().getName().equals(TRANSFER)).toList());
    }
}
