package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.tool.FakeHost;
import com.talvane.orvex.comm.tool.ToolRun;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The command {@code doctor}: it compares the list of the library with a machine that the test simulates. */
class DoctorToolTest extends ToolFixture {
    private static final String ROOT = "orvex.usb.root";

    @TempDir
    private Path folder;
    private FakeHost machine;

    @BeforeEach
    void makeMachine() throws Exception {
        machine = new FakeHost(folder);
        System.setProperty(ROOT, folder.toString());
    }

    @AfterEach
    void leaveMachine() {
        System.clearProperty(ROOT);
    }

    private String wrong(String line, String text) {
        ToolRun run = run(line);
        assertEquals(1, run.status(), run.err());
        assertTrue(run.out().contains("\nwrong  " + text), run.out());
        assertEquals(-116, usb.usbRelease(0), "the session was left open");
        return run.out();
    }

    @Test
    void aMachineInOrderIsToldToBe() throws Exception {
        machine.device(1, 0x1001, "BENCH00001");
        machine.device(2, 0x1002, "PAIR0002");
        String out = good("doctor -V 0x6A5C").out();
        List<String> found = out.lines().filter(line -> !line.startsWith("   ")).toList();
        assertEquals(List.of("ok     native library, version 3.47",
                "ok     the library lists 2 devices and interfaces",
                "ok     2 devices on the bus, 2 of the vendor 6A5C"), found.subList(0, 3));
        assertTrue(found.stream().allMatch(line -> line.startsWith("ok     ")), out);
    }

    @Test
    @Tag("memory")
    @Tag("linux")
    void theFilesInUseAreTold() throws Exception {
        machine.device(1, 0x1001, "BENCH00001");
        machine.device(2, 0x1002, "PAIR0002");
        List<String> files = good("doctor -V 0x6A5C").out().lines().skip(1).takeWhile(line -> line.startsWith("   "))
                .map(String::strip).toList();
        assertEquals(List.of(Path.of(System.getProperty("orvex.usb.library")).toRealPath().toString()),
                files.subList(0, 1));
        assertEquals(List.of("libhidapi-hidraw.so.0", "libusb-1.0.so.0"), files.stream().skip(1)
                .map(file -> Path.of(file).getFileName().toString().replaceFirst("(\\.so\\.0).*", "$1")).toList());
    }

    @Test
    void whatIsWrongIsToldWithWhatMendsIt() throws Exception {
        String out = wrong("doctor", "this machine has no USB bus: ");
        assertTrue(out.endsWith("\n         a virtual machine or container needs access to the USB devices of its"
                + " host\n"), out);
        machine.device(1, 0x1009, "MISSING1");
        wrong("doctor", "MISSING1 (6A5C:1009): on the bus, but the library does not list it\n");
    }

    @Test
    void describeTellsThePortsWhereTheSystemDoes() throws Exception {
        assertFalse(good("describe --serial PAIR0002").out().contains("Port"));
        machine.device(4, 0x1002, "PAIR0002");
        machine.device(5, 0x1002, "ANOTHER1");
        assertTrue(good("describe --serial PAIR0002").out().contains("\nPort           1-4\n"));
        machine.device(6, 0x1002, "PAIR0002");
        assertTrue(good("describe --serial PAIR0002").out().contains("\nPort           1-4 or 1-6\n"));
    }

    @Test
    void anUnsupportedDeviceIsTold() {
        bus.plug("modem");
        openSession();
        usb.usbRelease(0);
        wrong("doctor", "MODEM006 (6A5C:1003): the library does not support its class\n");
    }

    @Test
    @Tag("memory")
    void aLibraryThatCannotListIsTold() {
        bus.failNext("libusb_init", -99);
        ToolRun run = run("doctor");
        assertEquals(1, run.status(), run.err());
        assertTrue(run.out().contains("\nwrong  the library cannot list the devices: open a session: "), run.out());
    }
}
