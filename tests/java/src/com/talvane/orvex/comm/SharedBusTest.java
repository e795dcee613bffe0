package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The command {@code simbus}, which keeps a bus from one program to the next. */
@Tag("memory")
@Tag("linux")
@Tag("programs")
class SharedBusTest {
    private static final Path RELEASE = Path.of(System.getProperty(NativeLibrary.PATH_PROPERTY)).getParent();

    @TempDir
    private Path folder;

    /** Runs lines of a shell in which $tool is the command-line tool and $simbus the command. */
    private ChildVm.Outcome onOneBus(String... lines) throws Exception {
        return simbus("run", RELEASE + "/sim/demo.json", "--", "sh", "-c", String.join("\n", lines));
    }

    private ChildVm.Outcome simbus(String... words) throws Exception {
        return new ChildVm().withEnvironment("TMPDIR", folder.toString())
                .withEnvironment("tool", RELEASE + "/orvex-usb").withEnvironment("simbus", RELEASE + "/sim/simbus")
                .withoutEnvironment("XDG_RUNTIME_DIR").withoutEnvironment("SIMBUS_SCENARIO")
                .withoutEnvironment("LD_LIBRARY_PATH").runBeside("sim/simbus", words);
    }

    @Test
    void whatOneCommandWritesTheNextOneReads() throws Exception {
        Path written = Files.write(folder.resolve("written"), new byte[10_000]);
        Path read = folder.resolve("read");
        ChildVm.Outcome run = onOneBus("set -e",
                "$tool write --serial ECHO0001 --data 0A0B0C", "$tool read --serial ECHO0001",
                "$tool write --serial ECHO0001 --file " + written,
                "$tool read --serial ECHO0001 --bytes 10000 --to " + read);
        assertEquals(0, run.status(), run.toString());
        assertTrue(run.out().contains("00000000  0A 0B 0C "), run.toString());
        assertEquals(-1, Files.mismatch(written, read));
        assertTrue(run.err().contains("The USB bus is simulated by simbus run.\n"), run.err());
    }

    @Test
    void aDeviceThatOneCommandUnplugsIsGoneForTheNext() throws Exception {
        ChildVm.Outcome run = onOneBus("set -e", "$simbus control unplug device=echo1",
                "$simbus control unplug device=echo2",
                "$simbus control change device=echo2 'set={\"serial\":\"CHANGED1\"}'",
                "$simbus control plug device=echo2", "$tool list");
        assertEquals(0, run.status(), run.err());
        assertTrue(run.out().startsWith("{\"ok\":true}\n"), run.out());
        assertTrue(run.out().contains("CHANGED1"), run.out());
        assertFalse(run.out().contains("ECHO000"), run.out());
    }

    @Test
    void theToolsOwnSimulationIsAnotherBus() throws Exception {
        ChildVm.Outcome run = onOneBus("set -e", "$simbus control unplug device=echo1", "$tool --simulate list");
        assertEquals(0, run.status(), run.err());
        assertTrue(run.out().contains("ECHO0001"), run.toString());
    }

    @Test
    void aCommandThatIsAtWorkSeesWhatOthersDo() throws Exception {
        ChildVm.Outcome run = onOneBus(
                "$tool watch --count 2 --seconds 60 > " + folder + "/log & watch=$!",
                "until grep -qs Watching " + folder + "/log; do sleep 0.05; done",
                "$simbus control unplug device=echo1",
                "until grep -qs ' left ' " + folder + "/log; do sleep 0.05; done",
                "$simbus control plug device=echo1", "wait $watch");
        assertEquals(0, run.status(), run.toString());
        List<String> events = Files.readAllLines(folder.resolve("log")).stream()
                .filter(line -> line.contains("ECHO0001")).map(line -> line.split(" +")[1]).toList();
        assertEquals(List.of("present", "left", "arrived"), events);
    }

    /** What watch writes to a terminal while a device leaves and comes back, without the times. */
    private List<String> watchedOnATerminal(String colours) throws Exception {
        String log = folder.resolve("terminal" + colours).toString();
        ChildVm.Outcome run = onOneBus("export TERM=xterm NO_COLOR=" + colours,
                "script -qefc \"$tool watch --count 2 --seconds 60\" " + log + " > " + folder + "/out & watch=$!",
                "until grep -qs Watching " + log + "; do sleep 0.05; done", "$simbus control unplug device=echo1",
                "until grep -qs left " + log + "; do sleep 0.05; done", "$simbus control plug device=echo1",
                "wait $watch");
        assertEquals(0, run.status(), run.toString());
        return Files.readAllLines(folder.resolve("out")).stream()
                .map(line -> line.replaceAll("\\d\\d:\\d\\d:\\d\\d\\.\\d{3}", "TIME")).toList();
    }

    @Test
    void onATerminalWatchHasAHeadingColumnsAndColours() throws Exception {
        String arrived = "TIME  \u001B[32marrived\u001B[0m      2  6A5C:1001  ECHO0001          Echo Tool";
        List<String> lines = watchedOnATerminal("");
        assertEquals(List.of(
                "The USB bus is simulated by simbus run.",
                "TIME          EVENT    INDEX  ID         SERIAL            PRODUCT",
                "TIME  present      0  6A5D:2001  COMP0001          Composite Tool",
                "TIME  present      1  6A5C:1001  ECHO0002          Echo Tool",
                "TIME  present      2  6A5C:1001  ECHO0001          Echo Tool",
                "TIME  present      3  6A5C:3001  HID00001          HID Tool",
                "TIME  present      4  6A5D:2001  COMP0001_01       Data Port",
                "Present: 5. Watching; Ctrl-C ends it.",
                arrived.replace("32marrived", "31mleft   "), arrived), lines);
        assertEquals(lines.stream().map(line -> line.replaceAll("\u001B\\[\\d+m", "")).toList(),
                watchedOnATerminal("1"), "without colours where the user wants none");
    }

    /** Kills the bus in the middle of a tool's command; returns the exit status of the tool, which goes on. */
    private int statusOnABusThatIsKilled(String command, String condition) throws Exception {
        ChildVm.Outcome run = onOneBus("$tool write --serial ECHO0001 --data 0A0B0C",
                "$tool " + command + " > " + folder + "/log 2>&1 & tool=$!",
                "until " + condition + "; do sleep 0.05; done",
                "kill -9 $PPID", "wait $tool", "echo $? > " + folder + "/ended");
        assertEquals(128 + 9, run.status(), run.toString());
        UsbTest.await("the tool has ended", () -> folder.resolve("ended").toFile().length() > 0);
        return Integer.parseInt(Files.readString(folder.resolve("ended")).trim());
    }

    @Test
    void whenTheBusIsKilledItsDevicesHaveLeft() throws Exception {
        assertEquals(0, statusOnABusThatIsKilled("watch --count 5 --seconds 60",
                "grep -qs Watching " + folder + "/log"));
        assertEquals(5, Files.readAllLines(folder.resolve("log")).stream()
                .filter(line -> line.contains("  left  ")).count());
    }

    @Test
    void whenTheBusIsKilledATransferThatWaitsHasNoBytesOfTheOneBefore() throws Exception {
        Path read = folder.resolve("read");
        assertEquals(1, statusOnABusThatIsKilled("read --serial ECHO0001 --timeout 60000 --bytes 100 --to " + read,
                "$simbus control pending device=echo1 address=0x81 | grep -q '\"count\":1'"));
        assertEquals(3, Files.size(read), Files.readString(folder.resolve("log")));
    }

    @Test
    void theStatusIsThatOfTheProgram() throws Exception {
        String demo = RELEASE + "/sim/demo.json";
        assertEquals(7, simbus("run", demo, "--", "sh", "-c", "exit 7").status());
        assertEquals(128 + 15, simbus("run", demo, "--", "sh", "-c", "kill -15 $$").status());
        ChildVm.Outcome missing = simbus("run", demo, "--", "/no/such/program");
        assertEquals(127, missing.status());
        assertEquals("simbus: /no/such/program: No such file or directory\n", missing.err());
        assertEquals(126, simbus("run", demo, "--", demo).status());
    }

    @Test
    void withoutABusNothingIsStarted() throws Exception {
        Path broken = Files.writeString(folder.resolve("broken"), "{\"devices\": [{\"id\": 7}]}");
        ChildVm.Outcome run = simbus("run", broken.toString(), "--", "echo", "started");
        assertEquals(1, run.status());
        assertEquals("", run.out());
        assertEquals("simbus: scenario " + broken + ": line 1: devices[0]: \"id\" is not a string\n", run.err());
        ChildVm.Outcome absent = simbus("run", folder.resolve("absent").toString(), "--", "echo", "started");
        assertEquals("simbus: scenario " + folder.resolve("absent") + ": cannot be read\n", absent.err());
        ChildVm.Outcome inside = onOneBus("$simbus run " + RELEASE + "/sim/demo.json -- echo started");
        assertEquals(1, inside.status());
        assertEquals("simbus: this program is on a simulated bus already (SIMBUS_BUS)\n", inside.err());
        assertEquals(1, simbus("control", "ping").status());
    }

    @Test
    void aWrongCommandLineIsRefused() throws Exception {
        for (String line : List.of("", "run", "run demo.json --", "run demo.json sh", "run -x", "control", "nonsense")) {
            ChildVm.Outcome run = simbus(line.split(" "));
            assertEquals(2, run.status(), line);
            assertTrue(run.err().startsWith("usage: simbus run SCENARIO "), run.err());
        }
        assertEquals(0, simbus("--help").status());
    }

    @Test
    void aBusThatDoesNotAnswerIsAFailure() throws Exception {
        ChildVm.Outcome list = new ChildVm().withEnvironment("SIMBUS_BUS", folder + "/none").runTool("list");
        assertEquals(1, list.status(), list.toString());
        assertTrue(list.err().contains("simbus: no bus at " + folder + "/none: No such file or directory\n"),
                list.err());
    }

    @Test
    void theControlSocketGoesWithTheBus() throws Exception {
        ChildVm.Outcome run = onOneBus("echo $SIMBUS_BUS", "test -S $SIMBUS_BUS && stat -c %a ${SIMBUS_BUS%/*}");
        List<String> lines = run.out().lines().toList();
        assertEquals("700", lines.get(1));
        assertTrue(Files.notExists(Path.of(lines.get(0)).getParent()), run.out());
        Path wanted = folder.resolve("socket");
        ChildVm.Outcome named = new ChildVm().withBus(wanted).withoutEnvironment("SIMBUS_SCENARIO")
                .withoutEnvironment("LD_LIBRARY_PATH")
                .runBeside("sim/simbus", "run", RELEASE + "/sim/demo.json", "--", "sh", "-c", "echo $SIMBUS_BUS-$SIMBUS_SOCKET");
        assertEquals(wanted + "-\n", named.out(), named.err());
    }
}
