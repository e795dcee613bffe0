package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.tool.ToolRun;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Recordings that the tool makes. */
@Tag("memory")
class RecordToolTest extends ToolFixture {
    private static final Path RELEASE = Path.of(System.getProperty(NativeLibrary.PATH_PROPERTY)).getParent();
    private static final String FOLDER = "orvex.usb.simulator";

    @TempDir
    private Path folder;

    private Path file() {
        return folder.resolve("bug.pcapng");
    }

    private List<String> lines() throws Exception {
        return Capture.packets(file()).stream().map(Capture.Packet::toString).toList();
    }

    @Test
    void aCommandIsRecordedAndSaysSo() throws Exception {
        ToolRun run = good("--record " + file() + " write --serial BENCH00001 --data 010203");
        List<String> said = run.err().lines().toList();
        assertEquals("Records all that is sent and received, with its contents: " + file(), said.get(0));
        assertTrue(said.get(2).matches("Recorded 1 device, 8 transfers, 210 bytes in \\d+[.,]\\d s: " + file()), run.err());
        assertEquals(3, said.size());
        assertEquals(List.of("S bulk 0x01 3 010203", "C bulk 0x01 0 3"), lines().subList(14, 16));
        bus.clearCalls();
        good("write --serial BENCH00001 --data 01");
        assertEquals(1, bus.calls("libusb_submit_transfer"));
        assertEquals(16, lines().size());
    }

    @Test
    void serialNumbersAndDataAreLeftOut() throws Exception {
        ToolRun run = good("--record " + file()
                + " --anonymous --without-data write --serial BENCH00001 --data 010203");
        assertTrue(run.err().startsWith(
                "Records all that is sent and received, without its contents, without serial numbers: "), run.err());
        assertEquals("S bulk 0x01 3", lines().get(14));
        assertEquals("C control 0x80 0 22 1603" + "3000".repeat(10), lines().get(13));
        assertWrongUse("--anonymous list");
    }

    @Test
    void aCommandThatFailsIsRecordedToo() throws Exception {
        ToolRun run = run("--record " + file() + " read --serial BENCH00001 --in 0x84 --timeout 20");
        assertEquals(1, run.status());
        assertTrue(run.err().contains("\nRecorded 1 device, 8 transfers, 207 bytes in "), run.err());
        assertEquals(List.of("S bulk 0x84 512", "C bulk 0x84 -2 0"), lines().subList(14, 16));
        ToolRun none = good("--record " + file() + " list");
        assertTrue(none.err().contains("\nRecorded 0 devices, 0 transfers, 0 bytes in "), none.err());
        assertEquals(List.of(), lines());
    }

    @Test
    void reportsHaveTheSizeOfTheDevice() throws Exception {
        bus.plug("hid");
        await("the HID driver has the tool", () -> run("list --raw").out().contains("HIDT0021:=x:=h"));
        good("--record " + file() + " hid --serial HIDT0021 --data 4142 --read 64");
        assertEquals(List.of("S interrupt 0x01 64 4142" + "5a".repeat(62), "C interrupt 0x01 0 64",
                "S interrupt 0x81 64", "C interrupt 0x81 0 64 4142" + "5a".repeat(62)), lines().subList(12, 16));
        good("--record " + file() + " hid --serial HIDT0021 --packet-size 128 --fill 7 --data 4142 --read 130");
        assertEquals(List.of("S interrupt 0x01 128 4142" + "07".repeat(126), "C interrupt 0x01 0 128"),
                lines().subList(12, 14));
    }

    @Test
    void helpRecordsNothing() {
        good("--record " + file() + " list --help");
        assertTrue(Files.notExists(file()));
    }

    @Test
    @Tag("linux")
    void aFileThatCannotBeWrittenIsAFailure() {
        assertFails("--record " + folder.resolve("none/a") + " list", "cannot read or write the file: ");
        ToolRun full = good("--record /dev/full write --serial BENCH00001 --data 010203");
        assertTrue(full.err().startsWith("The recording ends here, the command goes on: No space left on device\n"),
                full.err());
    }

    @Test
    @Tag("linux")
    void theSimulatorIsMissedByItsName() throws Exception {
        assertFails("record a -- sh", "simbus-record is not installed; it is in the package orvex-usb-simulator");
        assertFails("replay a", "simbus-replay is not installed; it is in the package orvex-usb-simulator");
        assertWrongUse("record a");
        assertWrongUse("replay");
        Path program = Files.writeString(folder.resolve("simbus-record"), "#!/bin/sh\necho \"$@\" > " + file() + "; exit 7\n");
        System.setProperty(FOLDER, folder.toString());
        try {
            assertEquals(1, run("record a -- sh").status());
            assertTrue(program.toFile().setExecutable(true));
            assertEquals(7, run("record --anonymous --without-data a -- sh -c x").status());
            assertEquals("--anonymous --without-data --to a -- sh -c x\n", Files.readString(file()));
            String name = System.setProperty("os.name", "Mac OS X");
            assertEquals(7, run("record a -- sh").status());
            System.setProperty("os.name", name);
        } finally {
            System.clearProperty(FOLDER);
        }
    }

    @Test
    @Tag("linux")
    @Tag("programs")
    void whatTheToolHasRecordedIsReplayed() throws Exception {
        for (String line : List.of("echo --serial ECHO0001", "hid --serial HID00001 --data 48656C6C6F --read 64")) {
            ChildVm.Outcome recorded = launch("--simulate --record " + file() + " " + line);
            assertEquals(0, recorded.status(), recorded.toString());
            ChildVm.Outcome replayed = launch("replay " + file() + " -- " + RELEASE + "/orvex-usb " + line);
            assertEquals(0, replayed.status(), replayed.toString());
            assertTrue(replayed.err().contains("simbus-replay: 2 of 2 recorded transfers were asked for"), replayed.err());
            assertEquals(withoutTimes(recorded.out()), withoutTimes(replayed.out()));
        }
        ChildVm.Outcome scenario = launch("replay " + file());
        assertTrue(scenario.out().contains("\"vendorId\""), scenario.toString());
    }

    private static String withoutTimes(String output) {
        return output.replaceAll(" in [0-9.,]+ .?s", "");
    }

    private ChildVm.Outcome launch(String line) throws Exception {
        return new ChildVm().withEnvironment("TMPDIR", folder.toString()).withoutEnvironment("XDG_RUNTIME_DIR")
                .runLauncher(line.split(" "));
    }

    @Test
    @Tag("linux")
    @Tag("programs")
    void aProgramIsRecorded() throws Exception {
        ChildVm.Outcome run = launch("--simulate record " + file() + " -- " + RELEASE + "/orvex-usb describe --serial ECHO0001");
        assertEquals(0, run.status(), run.toString());
        assertTrue(run.err().contains("simbus-record: recorded 4 devices, "), run.err());
        ChildVm.Outcome own = launch("record " + file() + " -- " + RELEASE + "/orvex-usb --simulate list");
        assertTrue(own.out().contains("ECHO0001"), own.toString());
        assertEquals(3, launch("record " + file() + " -- sh -c exit(3)".replace("exit(3)", "exit${IFS}3")).status());
    }

    /** A limit for files stands for a disk that is full in the middle of a packet. */
    @Test
    @Tag("linux")
    @Tag("programs")
    void ofAPacketThatDoesNotFitNothingIsKept() throws Exception {
        int limit = 8 << 20;
        ChildVm.Outcome run = new ChildVm().with("-XX:-UsePerfData")
                .under("sh", "-c", "ulimit -f " + limit / 512 + "; exec \"$@\"", "sh").run("fill", file().toString());
        assertEquals("1048576\n".repeat(12), run.out(), run.err());
        assertTrue(run.err().contains("WARNING: the recording ends here: File too large"), run.toString());
        assertEquals(7 * 2 + 7 * 16, Capture.packets(file()).size());
    }

    @Test
    @Tag("linux")
    @Tag("programs")
    void whatASessionHasRecordedIsReplayed() throws Exception {
        ChildVm.Outcome recorded = new ChildVm().run("talk", file().toString());
        assertEquals(11, recorded.out().lines().count(), recorded.toString());
        ChildVm replay = new ChildVm().withEnvironment("TMPDIR", folder.toString())
                .withoutEnvironment("XDG_RUNTIME_DIR").withoutEnvironment("SIMBUS_SCENARIO")
                .under(RELEASE + "/sim/simbus-replay", file().toString(), "--");
        ChildVm.Outcome replayed = replay.run("talk", "none");
        assertEquals(recorded.out(), replayed.out(), replayed.err());
        assertTrue(replayed.err().matches("(?s).*simbus-replay: (\\d+) of \\1 recorded transfers were asked for\n"),
                replayed.err());
    }
}
