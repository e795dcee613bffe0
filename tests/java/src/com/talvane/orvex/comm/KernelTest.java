package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.tool.ToolRun;
import java.io.IOException;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermission;
import java.util.Set;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** Features of a kernel: permissions, other programs on a device, configurations that another program selected. */
@Tag("kernel")
class KernelTest extends UsbTest {
    private static final Set<Integer> OPEN_RESULTS = Set.of(0, -107, -108, -130);

    /** The folder in which the kernel shows the device with this serial number. */
    private static Path sysfs(String serial) throws IOException {
        try (DirectoryStream<Path> devices = Files.newDirectoryStream(Path.of("/sys/bus/usb/devices"))) {
            for (Path device : devices) {
                Path file = device.resolve("serial");
                if (Files.exists(file) && Files.readString(file).strip().equals(serial)) {
                    return device;
                }
            }
        }
        throw new AssertionError("the kernel has no " + serial);
    }

    private static int number(Path device, String file) throws IOException {
        return Integer.parseInt(Files.readString(device.resolve(file)).strip());
    }

    private static Path node(String serial) throws IOException {
        Path device = sysfs(serial);
        return Path.of(String.format("/dev/bus/usb/%03d/%03d", number(device, "busnum"), number(device, "devnum")));
    }

    private void assertEchoes(Device device) {
        assertEquals(4, device.write(0x01, pattern(4)));
        assertEquals(4, device.read(0x81, new byte[4]));
    }

    @Test
    void aDeviceWithoutPermissionIsListedAsSuchAndDoesNotOpen() throws Exception {
        openSession();
        Path node = node("BENCH00001");
        Set<PosixFilePermission> before = Files.getPosixFilePermissions(node);
        Files.setPosixFilePermissions(node, Set.of());
        try {
            // Without root's right to ignore permissions it is like a user's on a machine without a udev rule.
            ChildVm.Outcome program = new ChildVm().withBus(Bus.socket())
                    .under("setpriv", "--bounding-set=-dac_override,-dac_read_search", "--inh-caps=-all")
                    .run("openUnopenable");
            assertEquals(0, program.status(), program::toString);
            assertTrue(program.out().startsWith("open: -107\nok     native library"), program::toString);
            assertTrue(program.out().contains("wrong  BENCH00001 (6A5C:1001): no permission to use " + node + "\n"),
                    program::toString);
            assertTrue(program.out().contains("ok     PAIR0002 (6A5C:1002): /dev/bus/usb/"), program::toString);
            assertTrue(program.out().contains("<cannot_open>6A5C:1001"), program::toString);
            assertTrue(program.out().matches("(?s).*6A5C:1002 .* PAIR0002 .*"), program::toString);
            assertTrue(program.err().contains("ATTR{idVendor}==\"6a5c\""), program::toString);
        } finally {
            Files.setPosixFilePermissions(node, before);
        }
        assertEchoes(open(find(list(VENDOR), "BENCH00001")));
    }

    /** Runs in this process, beside its session, because another one takes long to start on an emulated machine. */
    private static void assertDoctorSays(String text) {
        ToolRun doctor = ToolRun.of(new byte[0], "doctor");
        assertTrue(doctor.out().contains(text), doctor.out());
    }

    @Test
    void aDeviceIsForOneProcessAtATime() throws Exception {
        Device bench = openBench();
        assertEquals("open: -108\n", new ChildVm().withBus(Bus.socket()).run("leaveOpen").out());
        assertDoctorSays("wrong  BENCH00001 (6A5C:1001): interface 0 is held by process "
                + ProcessHandle.current().pid() + " (java)\n");
        assertEchoes(bench);
        assertEquals(0, bench.close());
        assertDoctorSays("ok     BENCH00001 (6A5C:1001): no other driver and no other program holds it\n");
        assertEquals("open: 0\n", new ChildVm().withBus(Bus.socket()).run("leaveOpen").out());
        assertEchoes(open(bench));
    }

    @ParameterizedTest(name = "configuration {0}")
    @ValueSource(strings = {"2", "-1"})
    void openPutsADeviceIntoTheFirstConfiguration(String configuration) throws Exception {
        bus.plug("dual");
        openSession();
        Path device = sysfs("DUAL0020");
        Files.writeString(device.resolve("bConfigurationValue"), configuration);
        Device dual = open(find(list(VENDOR), "DUAL0020"));
        assertEquals(1, number(device, "bConfigurationValue"));
        assertEchoes(dual);
    }

    @Test
    void aDeviceMayBePulledAtAnyMomentOfAnOpen() throws Exception {
        Device bench = find(sessionWithList(), "BENCH00001");
        for (int tries = 0; tries < 8; tries++) {
            int microseconds = tries * 200;
            Future<Integer> opening = onAnotherThread(() -> {
                TimeUnit.MICROSECONDS.sleep(microseconds);
                return bench.open();
            });
            bus.unplug("bench");
            int opened = result(opening);
            assertTrue(OPEN_RESULTS.contains(opened), "open: " + opened);
            assertEquals(opened == 0 ? 0 : -114, bench.close());
            updateUntilPresent(bench, false);
            bus.plug("bench");
            updateUntilPresent(bench, true);
        }
        assertEchoes(open(bench));
    }
}
