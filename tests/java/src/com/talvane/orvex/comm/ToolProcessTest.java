package com.talvane.orvex.comm;

import static java.nio.charset.StandardCharsets.ISO_8859_1;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.BufferedReader;
import java.io.InputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Optional;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

/**
 * The tool as the process that a user starts: exit status, output as it comes, end by a signal. What a process of its
 * own shows is mostly the same on any bus and any processor, so most of it runs where processes start quickly.
 */
@Tag("unemulated")
class ToolProcessTest extends UsbTest {
    private static final String CHANGE = "\\d\\d:\\d\\d:\\d\\d\\.\\d{3}  %-7s +%d  6A5C:1001  BENCH00001 +Bench Tool";

    @TempDir
    private Path folder;
    private Path socket;

    @BeforeEach
    void waitForTheHost() {
        openSession();
        usb.usbRelease(0);
        socket = bus.socketForChild(folder);
    }

    private ChildVm child() {
        return new ChildVm().withBus(socket);
    }

    @ParameterizedTest(name = "{0}")
    @Tag("memory")
    @CsvSource(delimiter = '|', value = {
        "list | 0 | Bench Tool",
        "describe --serial PAIR0002 | 0 | Endpoint: 07 05 81 02 40 00 00",
        "control --serial BENCH00001 --request-type 0xC0 --request 2 --value 0x1234 --index-word 0x56 --length 9"
                + " | 0 | A1 B2 C3 ",
        "echo --serial BENCH00001 | 0 | The echo is equal.",
        "echo --serial NOBODY | 1 | orvex-usb: no device with serial number NOBODY",
        "watch --count x | 2 | Usage: orvex-usb watch",
    })
    void theExitStatusAndTheOutputTellHowItWent(String line, int status, String text) throws Exception {
        ChildVm.Outcome tool = child().runTool(line.split(" "));
        assertEquals(status, tool.status(), tool.err());
        assertTrue((status == 0 ? tool.out() : tool.err()).contains(text), tool::toString);
    }

    @Test
    @Tag("memory")
    void theLauncherSimulatesTheBusAndSaysSo() throws Exception {
        String notice = "The USB bus is simulated. On real hardware: orvex-usb list (without --simulate).\n";
        ChildVm.Outcome own = child().runLauncher("--simulate", "list");
        assertEquals(0, own.status(), own.err());
        assertEquals(notice, own.err());
        assertTrue(own.out().contains("ECHO0001"), own.out());

        String scenario = "{\"devices\": [{\"id\": \"tool\", \"vendorId\": \"0x6A5C\", \"serial\": \"MINE0001\"}]}";
        Path file = Files.writeString(folder.resolve("two words"), scenario);
        ChildVm.Outcome chosen = child().runLauncher("list", "--simulate=" + file, "--raw");
        assertEquals(notice, chosen.err());
        assertTrue(chosen.out().matches("1:=6A5C:=.*:=MINE0001:=.*\n"), chosen.out());

        ChildVm.Outcome missing = child().runLauncher("--simulate=" + folder.resolve("none"), "list");
        assertEquals(2, missing.status());
        assertTrue(missing.err().startsWith("orvex-usb: --simulate needs "), missing.err());
        assertEquals("", missing.out());
    }

    @Test
    @Tag("memory")
    void aScenarioThatCannotBeReadIsAFailure() throws Exception {
        for (String text : new String[] {"{\"devices\": [", "{\"devices\": [{\"id\": 7}]}"}) {
            Path file = Files.writeString(folder.resolve("broken"), text);
            ChildVm.Outcome tool = child().runLauncher("--simulate=" + file, "list");
            assertEquals(1, tool.status(), tool.toString());
            assertTrue(tool.err().contains("simbus: scenario " + file + ": "), tool.err());
            assertEquals("", tool.out());
        }
    }

    @Test
    @Tag("memory")
    void theDoctorDoesNotPassOverADeviceOfASimulatedBusThatCannotBeOpened() throws Exception {
        Path file = Files.writeString(folder.resolve("scenario"), "{\"devices\": [{\"id\": \"tool\","
                + "\"vendorId\": \"0x6A5C\", \"productId\": \"0x1001\", \"hostFailures\": {\"open\": -3}}]}");
        ChildVm.Outcome doctor = child().runLauncher("--simulate=" + file, "doctor");
        assertEquals(1, doctor.status(), doctor.out());
        assertTrue(doctor.out().contains("\nwrong  <cannot_open>6A5C:1001: could not be opened\n"), doctor.out());
    }

    @Test
    @Tag("memory")
    @Tag("linux")
    void whatWasReadStandsBelowItsOwnLine() throws Exception {
        List<String> lines = child().under("sh", "-c", "exec \"$@\" 2>&1", "sh")
                .runLauncher("--simulate", "hid", "--serial", "HID00001", "--data", "48", "--read", "1").out().lines()
                .map(line -> line.split(" ")[0]).toList();
        assertEquals(List.of("The", "Wrote", "Read", ""), lines);
    }

    @Test
    @Tag("memory")
    @Tag("linux")
    void theLauncherTakesTheToolsClassesFromAnArchive() throws Exception {
        Path log = folder.resolve("log");
        ChildVm.Outcome tool = child().withEnvironment("JAVA_TOOL_OPTIONS", "-Xlog:class+load:file=" + log)
                .runLauncher("--simulate", "list");
        assertEquals(0, tool.status(), tool.err());
        assertFalse(tool.out().contains("cds"), tool.out());
        Path archive = Path.of(System.getProperty(NativeLibrary.PATH_PROPERTY)).resolveSibling("orvex-usb.jsa");
        boolean isOfThisJava = Files.exists(archive) && madeByThisJava(archive);
        assertEquals(isOfThisJava, Files.readString(log).contains("tool.ListCommand source: shared objects file (top)"),
                "only the Java that has made an archive can use it");
        Path java = Path.of(System.getProperty("java.home")).toRealPath();
        boolean isOfThisBuild = javaOfTheBuild(archive).map(program -> program.startsWith(java)).orElse(false);
        assertTrue(isOfThisJava || !isOfThisBuild, "the Java of this build has made no archive");
    }

    /** The archive names the virtual machine in its first bytes. */
    private static boolean madeByThisJava(Path archive) throws Exception {
        try (InputStream bytes = Files.newInputStream(archive)) {
            return new String(bytes.readNBytes(4096), ISO_8859_1)
                    .contains("(" + System.getProperty("java.vm.version") + ")");
        }
    }

    /** The program java with which the archive's build was configured; none with sanitizers, which have no archive. */
    private static Optional<Path> javaOfTheBuild(Path archive) throws Exception {
        List<String> cache = Files.readAllLines(archive.resolveSibling("CMakeCache.txt"));
        boolean hasArchive = cache.contains("ORVEX_SANITIZE:STRING=");
        Optional<String> java = cache.stream().filter(line -> line.startsWith("Java_JAVA_EXECUTABLE:")).findFirst();
        return hasArchive ? Optional.of(Path.of(java.orElseThrow().replaceAll(".*=", "")).toRealPath())
                : Optional.empty();
    }

    @Test
    @Tag("memory")
    void aValueOfAnotherOptionDoesNotSimulate() throws Exception {
        ChildVm.Outcome taken = child().runLauncher("echo", "--timeout", "50", "--serial", "--simulate=none");
        assertTrue(taken.err().startsWith("orvex-usb: no device with serial number --simulate=none of "), taken.err());
        ChildVm.Outcome both = child().runLauncher("echo", "--serial", "--simulate", "--simulate");
        assertTrue(both.err().contains("\norvex-usb: no device with serial number --simulate of "), both.err());
        for (String last : new String[] {"-V0x6A5C", "--vendor=0x6A5C", "--json"}) {
            ChildVm.Outcome own = child().runLauncher("list", last, "--simulate");
            assertEquals(0, own.status(), own.err());
            assertTrue(own.out().contains("ECHO0001"), own.out());
        }
    }

    @Test
    @Tag("memory")
    @Tag("linux")
    void theLauncherTellsTheToolWhatIsATerminal() throws Exception {
        ChildVm onTerminal = child().withoutEnvironment("NO_COLOR").withEnvironment("TERM", "xterm")
                .under("sh", "-c", "exec script -qec \"$*\" /dev/null", "sh");
        ChildVm.Outcome coloured = onTerminal.runLauncher("--simulate", "doctor");
        assertTrue(coloured.out().contains("\u001B[32mok   \u001B[0m  native library"), coloured.out());
        ChildVm.Outcome plain = onTerminal.withEnvironment("NO_COLOR", "1").runLauncher("--simulate", "doctor");
        assertTrue(plain.out().contains("ok     native library"), plain.out());
        assertFalse(plain.out().contains("\u001B"), plain.out());
        assertEquals("ok     native library, version 3.47",
                child().runLauncher("--simulate", "doctor").out().lines().findFirst().orElse(""));
    }

    /** The system's own words differ from release to release, so they are not made up here. */
    @ParameterizedTest(name = "{0}")
    @Tag("memory")
    @Tag("linux")
    @CsvSource({
        "libusb-1.0.so.0, libusb-1.0 is missing, sudo apt-get install libusb-1.0-0",
        "libhidapi-hidraw.so.0, hidapi is missing, sudo apt-get install libhidapi-hidraw0"
    })
    void theDoctorTellsWhyTheLibraryCannotBeLoaded(String needed, String missing, String remedy) throws Exception {
        byte[] library = Files.readAllBytes(Path.of(System.getProperty(NativeLibrary.PATH_PROPERTY)));
        String changed = new String(library, ISO_8859_1).replace(needed, needed.replace(".so.0", ".so.9"));
        Path file = Files.write(folder.resolve("lib.so"), changed.getBytes(ISO_8859_1));
        ChildVm.Outcome tool = child().without(NativeLibrary.PATH_PROPERTY)
                .with("-D" + NativeLibrary.PATH_PROPERTY + "=" + file).runTool("doctor");
        assertEquals(1, tool.status(), tool.err());
        String told = "wrong  the native library cannot be loaded: " + missing + "\n         " + remedy + "\n";
        assertTrue(tool.out().startsWith(told), tool.out());
    }

    @Test
    @Tag("memory")
    void aSignalEndsALongTransferAndTheDeviceIsClosed() throws Exception {
        Path err = folder.resolve("err");
        Path file = folder.resolve("long");
        Process read = child().withEnvironment("ORVEXCOMM_DEBUG", "1").startTool(err, "read", "--serial", "BENCH00001",
                "--in", "0x83", "--size", "64", "--bytes", "2000000000", "--to", file.toString());
        try {
            await("some bytes were read", () -> file.toFile().length() > 0);
            read.destroy();
            assertEquals(128 + 15, statusOf(read));
        } finally {
            read.destroyForcibly();
        }
        String trace = Files.readString(err);
        assertTrue(trace.contains("[LibUSB_CloseDevice]"), trace);
        assertTrue(trace.contains("[LibUSB_Release] exit: 0"), trace);
        assertTrue(trace.contains("orvex-usb: the transfer ended after "), trace);
    }

    @Test
    @Tag("memory")
    void withoutSimulationNothingIsSaidAboutIt() throws Exception {
        assertEquals("", child().runTool("list").err());
    }

    @Test
    @Tag("memory")
    void watchEndsAfterItsCount() throws Exception {
        Process watch = child().startTool(folder.resolve("err"), "watch", "--count", "1", "--seconds", "100");
        try (BufferedReader out = watch.inputReader()) {
            int index = indexWhenWatching(out);
            change(theirs -> theirs.unplug("bench"));
            assertMatches(String.format(CHANGE, "left", index), out.readLine());
            assertEquals(0, statusOf(watch));
        } finally {
            watch.destroyForcibly();
        }
    }

    @Test
    void watchShowsADeviceLeaveAndComeBackAndGivesAllBackWhenASignalEndsIt() throws Exception {
        Path err = folder.resolve("err");
        Process watch = child().withEnvironment("ORVEXCOMM_DEBUG", "1").startTool(err, "watch", "--seconds", "200");
        try (BufferedReader out = watch.inputReader()) {
            int index = indexWhenWatching(out);
            change(theirs -> theirs.unplug("bench"));
            assertMatches(String.format(CHANGE, "left", index), out.readLine());
            change(theirs -> theirs.plug("bench"));
            assertMatches(String.format(CHANGE, "arrived", index), out.readLine());
            watch.destroy();
            assertEquals(128 + 15, statusOf(watch));
        } finally {
            watch.destroyForcibly();
        }
        String trace = Files.readString(err);
        assertTrue(trace.contains("[LibUSB_Release] exit: 0"), trace);
        assertEquals(count("[tlvn_libusb_ref_device] ref_count", trace),
                count("[tlvn_libusb_unref_device] ref_count", trace), trace);
    }

    @Test
    @Tag("memory")
    void watchShowsADeviceThatWasNeverThereBefore() throws Exception {
        Process watch = child().startTool(folder.resolve("err"), "watch", "--count", "1", "--seconds", "100");
        try (BufferedReader out = watch.inputReader()) {
            indexWhenWatching(out);
            change(theirs -> theirs.plug("spare"));
            String line = out.readLine();
            assertTrue(line != null && line.contains("arrived") && line.contains("SPARE005"), line);
            assertEquals(0, statusOf(watch));
        } finally {
            watch.destroyForcibly();
        }
    }

    @ParameterizedTest
    @Tag("memory")
    @CsvSource({"out, NO_COLOR, '', true", "out, NO_COLOR, 1, false", "out, TERM, dumb, false", "out, TERM, xterm, true",
        "err, TERM, xterm, false"})
    void coloursAreForATerminalThatHasThemAndAUserWhoWantsThem(String terminal, String variable, String value,
            boolean isColoured) throws Exception {
        ChildVm tool = child().with("-Dorvex.usb.terminals=" + terminal).withoutEnvironment("NO_COLOR")
                .withEnvironment("TERM", "xterm").withEnvironment(variable, value);
        assertEquals(isColoured, tool.runTool("--help").out().contains("\u001B["));
    }

    @Test
    @Tag("memory")
    void theDoctorOfASimulatedBusDoesNotLookAtTheMachine() throws Exception {
        ChildVm.Outcome doctor = child().withEnvironment("ORVEX_USB_SIMULATED", "1").runTool("doctor");
        assertTrue(doctor.out().contains("the bus of this machine was not checked"), doctor.out());
        assertTrue(doctor.err().startsWith("The USB bus is simulated. On real hardware: "), doctor.err());
    }

    private void change(Consumer<Bus> change) {
        try (Bus theirs = Bus.connect(socket)) {
            change.accept(theirs);
        }
    }

    private static long count(String text, String trace) {
        return trace.lines().filter(line -> line.contains(text)).count();
    }

    /** Reads until the tool waits for changes; returns the index of the device. */
    private static int indexWhenWatching(BufferedReader out) throws Exception {
        int index = -1;
        for (String line = out.readLine(); line != null; line = out.readLine()) {
            if (line.equals("Watching; Ctrl-C ends it.")) {
                return index;
            }
            if (line.contains("BENCH00001")) {
                index = Integer.parseInt(line.split(" +")[2]);
                assertMatches(String.format(CHANGE, "present", index), line);
            }
        }
        throw new AssertionError("the tool ended without watching");
    }

    private static void assertMatches(String pattern, String line) {
        assertTrue(line != null && line.matches(pattern), () -> line + " should be " + pattern);
    }

    private static int statusOf(Process process) throws InterruptedException {
        assertTrue(process.waitFor(60, TimeUnit.SECONDS), "it did not end");
        return process.exitValue();
    }
}
