package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.tool.ToolRun;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** The tool's longer jobs: whole files, measurements, a reset. */
class ToolJobsTest extends ToolFixture {
    @TempDir
    private Path folder;

    private Path file(int bytes) throws Exception {
        return Files.write(folder.resolve("file"), pattern(bytes));
    }

    private byte[] receivedAt(int endpoint) {
        ByteArrayOutputStream all = new ByteArrayOutputStream();
        bus.received("bench", endpoint).forEach(all::writeBytes);
        return all.toByteArray();
    }

    @Test
    void aFileIsWrittenPieceByPiece() throws Exception {
        ToolRun run = good("write --serial BENCH00001 --out 3 --size 400 --file " + file(1000));
        assertArrayEquals(pattern(1000), receivedAt(0x03));
        assertTrue(run.err().matches("Wrote 1000 bytes in \\S+ ms, \\d+ bytes a second\n"), run.err());
    }

    @Test
    void anEmptyFileIsWrittenAtOnce() throws Exception {
        assertTrue(good("write --serial BENCH00001 --out 3 --file " + file(0)).err().startsWith("Wrote 0 bytes in "));
    }

    @Test
    void aFileThatTheDeviceDoesNotTakeFails() throws Exception {
        ToolRun run = run("write --serial BENCH00001 --out 5 --file " + file(1000));
        assertEquals(1, run.status());
        assertTrue(run.err().endsWith("orvex-usb: the transfer ended after 0 of 1000 bytes\n"), run.err());
        assertFails("write --serial BENCH00001 --file " + folder.resolve("none"), "none");
    }

    @Test
    void bytesAreReadIntoAFileUntilThereAreEnough() {
        Path file = folder.resolve("read");
        bus.feed("bench", 0x81, pattern(100));
        bus.feed("bench", 0x81, pattern(150));
        good("read --serial BENCH00001 --size 64 --bytes 230 --to " + file);
        byte[] read = read(file);
        assertEquals(230, read.length);
        assertEquals(pattern(100)[99], read[99]);
        assertEquals(pattern(150)[129], read[229]);
    }

    private static byte[] read(Path file) {
        try {
            return Files.readAllBytes(file);
        } catch (IOException e) {
            throw new AssertionError(e);
        }
    }

    @Test
    void whatCameBeforeAFailureStaysInTheFile() {
        Path file = folder.resolve("read");
        bus.feed("bench", 0x81, pattern(64));
        assertFails("read --serial BENCH00001 --timeout 50 --size 64 --bytes 100 --to " + file, "(-150; ");
        assertArrayEquals(pattern(64), read(file));
    }

    @Test
    void aFileThatNothingWasReadIntoKeepsWhatItHad() throws Exception {
        Path file = file(10);
        assertFails("read --serial NOBODY --bytes 100 --to " + file, "no device with serial number NOBODY");
        assertArrayEquals(pattern(10), read(file));
        assertFails("read --serial BENCH00001 --timeout 50 --bytes 100 --to " + file, "endpoint 0x81");
        assertArrayEquals(pattern(10), read(file));
        bus.feed("bench", 0x81, pattern(4));
        good("read --serial BENCH00001 --bytes 4 --to " + file);
        assertArrayEquals(pattern(4), read(file));
        good("read --serial BENCH00001 --bytes 0 --to " + file);
        assertEquals(0, read(file).length);
    }

    @Test
    void aFileThatCannotBeWrittenIsToldBeforeAByteIsRead() {
        bus.feed("bench", 0x81, pattern(4));
        assertFails("read --serial BENCH00001 --bytes 4 --to " + folder, folder.toString());
        assertEquals(4, good("read --serial BENCH00001 -o -").bytes().length);
    }

    @Test
    void progressIsShownOnATerminalOnly() throws Exception {
        String line = "write --serial BENCH00001 --out 3 --size 250 --file " + file(1000);
        assertFalse(onTerminals("out", line).err().contains("\r"));
        String err = onTerminals("out,err", line).err();
        assertTrue(err.startsWith("\r[" + " ".repeat(40) + "]   0 %\r[" + "#".repeat(10) + " ".repeat(30) + "]  25 %"),
                err);
        assertTrue(err.contains("\r[" + "#".repeat(40) + "] 100 %\nWrote 1000 bytes in "), err);
    }

    @Test
    void helpHasColoursOnATerminalOnly() {
        assertFalse(onTerminals("err", "list --help").out().contains("\u001B"));
        boolean wanted = System.getenv("NO_COLOR") == null && !"dumb".equals(System.getenv("TERM"));
        assertEquals(wanted, onTerminals("out", "list --help").out().contains("\u001B["));
    }

    @Test
    void benchMeasuresRoundTrips() {
        String out = good("bench --serial BENCH00001 --size 100 --count 20").out();
        assertTrue(out.matches("BENCH00001: 20 rounds of 100 bytes in \\S+ s\n"
                + "out      2000 bytes, \\d+ bytes a second\nin       2000 bytes, \\d+ bytes a second\n"
                + "latency  median \\d+\\.\\d{3} ms, p99 \\d+\\.\\d{3} ms, p99\\.9 \\d+\\.\\d{3} ms, max \\d+\\.\\d{3} ms\n"), out);
        assertEquals(20, bus.received("bench", 0x01).size());
    }

    @Test
    void benchShowsProgressAndBarsOnATerminalOnly() {
        String line = "bench --serial BENCH00001 --size 10 --count 20";
        ToolRun run = onTerminals("out,err", line);
        assertTrue(run.out().matches("(?s).*\nlatency  .*(\n  < +\\d+\\.\\d{6} ms  #+ +\\d+\\.\\d %)+\n"), run.out());
        assertTrue(run.err().endsWith("] 100 %\n"), run.err());
        ToolRun piped = good(line);
        assertEquals("", piped.err());
        assertFalse(piped.out().contains("#"), piped.out());
    }

    @Test
    void benchMeasuresOneDirectionAndInterruptEndpoints() {
        String out = good("bench --serial BENCH00001 --out 3 --size 10 --count 5").out();
        assertTrue(out.contains("\nout      50 bytes,") && out.contains("\nin       0 bytes,"), out);
        out = good("bench --serial BENCH00001 --in 0x83 --size 10 --count 5").out();
        assertTrue(out.contains("\nout      0 bytes,") && out.contains("\nin       50 bytes,"), out);
        out = good("bench --serial BENCH00001 --out 2 --in 0x82 --interrupt --size 10 --count 5").out();
        assertTrue(out.contains("\nout      50 bytes,") && out.contains("\nin       50 bytes,"), out);
    }

    /** An interrupt endpoint accepts transfers of both kinds, a bulk endpoint only bulk transfers. */
    @ParameterizedTest
    @ValueSource(strings = {
        "bench --serial BENCH00001 --out 1 --count 1", "bench --serial BENCH00001 --in 0x83 --count 1",
        "write --serial BENCH00001 --out 1 --data 00", "read --serial BENCH00001 --in 0x83"
    })
    void interruptTransfersAreForInterruptEndpoints(String line) {
        good(line);
        assertFails(line + " --interrupt", " endpoint 0x");
    }

    @Test
    @Tag("memory")
    void benchEndsInTime() {
        String out = good("bench --serial BENCH00001 --out 3 --size 10 --seconds 1").out();
        assertTrue(out.matches("(?s)BENCH00001: \\d+ rounds of 10 bytes in 1\\.\\d+ s\n.*"), out);
    }

    @Test
    void aMeasurementThatCannotGoOnFails() {
        ToolRun run = run("bench --serial BENCH00001 --out 5 --count 5 --size 10");
        assertEquals(1, run.status());
        assertEquals("orvex-usb: the device accepted only 0 of 10 bytes\n", run.err());
        assertFails("bench --serial BENCH00001 --in 0x84 --count 5 --timeout 50", "(-150; ");
    }

    @Test
    void aMeasurementOfAnEchoThatEndsEarlyFails() {
        ToolRun run = run("bench --serial BENCH00001 --out 3 --in 0x85 --count 5 --size 10");
        assertEquals(1, run.status());
        assertEquals("orvex-usb: the device sent only 0 of 10 bytes\n", run.err());
    }

    @Test
    void aDeviceIsReset() {
        assertEquals("Reset BENCH00001.\n", good("reset --serial BENCH00001").out());
        good("echo --serial BENCH00001");
        assertFails("reset --serial NOBODY", "no device with serial number NOBODY");
    }

    @Test
    @Tag("memory")
    void aResetReachesTheDevice() {
        bus.clearCalls();
        good("reset --serial BENCH00001");
        assertEquals(1, bus.calls("libusb_reset_device"));
        bus.failNext("libusb_reset_device", -5);
        assertFails("reset --serial BENCH00001", "reset BENCH00001: -5: ");
    }

    @Test
    void anEndpointAloneCannotBeReset() {
        assertFails("reset --serial BENCH00001 --endpoint 0x81", "reset endpoint 0x81 of BENCH00001: -120: ");
    }

    @ParameterizedTest
    @Tag("memory")
    @ValueSource(strings = {
        "bench", "bench --index 0 --count 0", "bench --index 0 --seconds 0", "bench --index 0 --size 0",
        "bench --index 0 --out 256", "reset", "reset --index 0 --endpoint 256", "reset --index 0 --timeout 1",
        "write --index 0 --file a --data 01", "write --index 0 --size 3", "write --index 0 --size 3 --data 01",
        "read --index 0 --to a", "read --index 0 --bytes 3", "read --index 0 --to a --bytes x",
        "read --index 0 --to a --bytes 1 -o b", "doctor extra", "doctor -V x"
    })
    void wrongUseIsTold(String line) {
        assertWrongUse(line);
    }
}
