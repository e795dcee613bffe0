package com.talvane.orvex.comm.tool;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Optional;
import java.util.stream.IntStream;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

/** Each fault that the doctor knows, on a machine of the test's own making. */
class DoctorTest {
    private static final String RIGHTS = "MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"";
    private static final String LABEL = "TOOL0001 (6A5C:1001): ";
    private static final String FREE = LABEL + "no other driver and no other program holds it";
    private static final String FOUND = "1 devices on the bus, 1 of the vendor 6A5C";

    @TempDir
    private Path root;
    private FakeHost fake;
    private Path node;

    @BeforeEach
    void makeMachine() throws IOException {
        fake = new FakeHost(root);
        node = fake.node(5);
    }

    private Path plugTool() throws IOException {
        return fake.device(5, 0x1001, "TOOL0001");
    }

    private static String line(String serial, char kind, int family, int number) {
        return String.format("1:=6A5C:=1001:=0100:=Talvane:=Tool:=%s:=x:=%c:=%d:=%d:=end", serial, kind, family, number);
    }

    private List<Finding> findings(String... lines) {
        List<DeviceInfo> listed =
                IntStream.range(0, lines.length).mapToObj(i -> DeviceInfo.parse(i, lines[i])).toList();
        return new Doctor(fake.host(), new Vendors(List.of(0x6A5C)), Optional.of(listed)).findings();
    }

    /** The findings about a plain tool that is listed. */
    private List<Finding> ofTool() {
        return findings(line("TOOL0001", 'b', 0, 0));
    }

    private static List<String> texts(List<Finding> findings) {
        return findings.stream().map(Finding::text).toList();
    }

    /** The one thing that is wrong. */
    private static Finding wrong(List<Finding> findings) {
        List<Finding> wrong = findings.stream().filter(finding -> !finding.isGood()).toList();
        assertEquals(1, wrong.size(), wrong::toString);
        return wrong.get(0);
    }

    private static void assertWrong(String text, String remedy, List<Finding> findings) {
        assertEquals(text, wrong(findings).text());
        assertTrue(wrong(findings).remedy().contains(remedy), wrong(findings)::toString);
    }

    @Test
    void whatIsGoodIsToldToo() throws IOException {
        fake.addInterface(plugTool(), 0, "ff", "");
        List<Finding> findings = ofTool();
        assertTrue(findings.stream().allMatch(Finding::isGood), findings::toString);
        assertEquals(List.of(FOUND, LABEL + node + " can be used", FREE), texts(findings));
    }

    @Test
    void aNodeWithoutPermissionIsToldWithTheRuleThatGivesIt() throws IOException {
        plugTool();
        fake.forbid(node);
        Finding wrong = wrong(findings("1:=6A5C:=1001:=0100:=<cannot_open>6A5C:1001:=?:=?:=x:=b:=0:=0:=end"));
        assertEquals(LABEL + "no permission to use " + node, wrong.text());
        assertEquals(List.of(
                "put this line into /etc/udev/rules.d/71-usb-tools.rules:",
                "    SUBSYSTEM==\"usb\", ENV{DEVTYPE}==\"usb_device\", ATTR{idVendor}==\"6a5c\", " + RIGHTS,
                "and apply it:",
                "    sudo udevadm control --reload-rules",
                "    sudo udevadm trigger --subsystem-match=usb",
                "for a user who is not logged in at the machine itself (takes effect at the next login):",
                "    sudo adduser \"$USER\" plugdev"), wrong.remedy());
    }

    @Test
    void aGroupThatMayUseTheNodeIsNamed() throws IOException {
        plugTool();
        fake.forbid(node);
        String group = fake.giveToGroup(node);
        assertWrong(LABEL + "no permission to use " + node, "    sudo adduser \"$USER\" " + group, ofTool());
    }

    @Test
    void aNodeThatIsNotThereIsTold() throws IOException {
        plugTool();
        Files.delete(node);
        assertWrong(LABEL + "there is no node " + node, "    sudo udevadm trigger --subsystem-match=usb", ofTool());
    }

    @Test
    void aKernelDriverIsNamed() throws IOException {
        fake.addInterface(plugTool(), 0, "ff", "ftdi_sio");
        assertWrong(LABEL + "interface 0 is held by the kernel driver ftdi_sio",
                "echo -n 1-5:1.0 | sudo tee /sys/bus/usb/drivers/ftdi_sio/unbind", ofTool());
        assertTrue(!texts(ofTool()).contains(FREE));
    }

    @Test
    void aDriverOfAnInterfaceThatTheLibraryDoesNotDriveIsLeftAlone() throws IOException {
        Path device = plugTool();
        fake.addInterface(device, 0, "01", "snd-usb-audio");
        fake.addInterface(device, 1, "ff", "");
        List<Finding> findings = findings(line("TOOL0001_01", 'b', 2, 1));
        assertTrue(findings.stream().allMatch(Finding::isGood), findings::toString);
        assertEquals(FREE, findings.get(2).text());
    }

    @Test
    void theProgramThatHoldsADeviceIsNamed() throws IOException {
        fake.addInterface(plugTool(), 0, "ff", "usbfs");
        fake.process("41", "bystander", root.resolve("dev/null"));
        fake.process("42", "flasher", node);
        fake.process("self", "doctor", node);
        assertWrong(LABEL + "interface 0 is held by process 42 (flasher)",
                "end that program, or make it close the device", ofTool());
    }

    @Test
    void aProgramOfSomebodyElseIsToldWithoutAName() throws IOException {
        fake.addInterface(plugTool(), 0, "ff", "usbfs");
        assertWrong(LABEL + "interface 0 is held by another program", "sudo fuser -v " + node + "    shows which one",
                ofTool());
    }

    @Test
    void theDriverAndTheNodeOfAHidDeviceAreGood() throws IOException {
        Path hid = fake.addHidNode(fake.addInterface(plugTool(), 0, "03", "usbhid"), "hidraw3");
        List<Finding> findings = findings(line("TOOL0001", 'h', 0, 0));
        assertTrue(findings.stream().allMatch(Finding::isGood), findings::toString);
        assertTrue(texts(findings).contains(LABEL + hid + " can be used"), findings::toString);
    }

    @Test
    void aHidNodeWithoutPermissionIsToldWithTheRuleThatGivesIt() throws IOException {
        Path hid = fake.addHidNode(fake.addInterface(plugTool(), 0, "03", "usbhid"), "hidraw3");
        fake.forbid(hid);
        List<Finding> findings = findings(line("TOOL0001", 'h', 0, 0));
        assertWrong(LABEL + "no permission to use " + hid,
                "    SUBSYSTEM==\"hidraw\", KERNELS==\"0003:6A5C:*\", " + RIGHTS, findings);
        assertTrue(wrong(findings).remedy().contains("    sudo udevadm trigger --subsystem-match=hidraw"));
    }

    @Test
    void aHidDeviceWithoutItsDriverIsTold() throws IOException {
        fake.addInterface(plugTool(), 0, "03", "");
        assertWrong(LABEL + "no HID driver is bound to interface 0",
                "echo -n 1-5:1.0 | sudo tee /sys/bus/usb/drivers/usbhid/bind", findings(line("TOOL0001", 'h', 0, 0)));
    }

    @Test
    void aHidDriverOnADeviceThatIsDrivenByPipesHoldsIt() throws IOException {
        fake.addHidNode(fake.addInterface(plugTool(), 0, "03", "usbhid"), "hidraw3");
        assertWrong(LABEL + "interface 0 is held by the kernel driver usbhid",
                "echo -n 1-5:1.0 | sudo tee /sys/bus/usb/drivers/usbhid/unbind", ofTool());
    }

    @Test
    void aMachineWithoutABusIsTold() {
        assertEquals(List.of("this machine has no USB bus: there is no " + root.resolve("sys/bus/usb")),
                texts(findings()));
        assertTrue(!wrong(findings()).remedy().isEmpty());
    }

    @Test
    void nothingPluggedInIsTold() throws IOException {
        Path other = fake.device(7, 1, "");
        Files.writeString(other.resolve("idVendor"), "1d6b\n");
        assertEquals("1 devices on the bus, 0 of the vendor 6A5C", wrong(findings()).text());
        assertTrue(wrong(findings()).remedy().get(0).startsWith("plug one in"));
    }

    @Test
    void aDeviceOnTheBusThatIsNotListedIsTold() throws IOException {
        plugTool();
        assertWrong(LABEL + "on the bus, but the library does not list it", "    ORVEXCOMM_DEBUG=1 orvex-usb list",
                findings());
        fake.device(6, 0x1001, "TOOL0002");
        assertTrue(wrong(ofTool()).text().startsWith("TOOL0002 (6A5C:1001): on the bus, but"));
    }

    @Test
    void aSerialNumberThatTheLibraryShowsDifferentlyIsNotMissed() throws IOException {
        fake.device(5, 0x1001, "TÖÖL");
        List<Finding> findings = findings(line("T??L", 'b', 0, 0));
        assertTrue(findings.stream().allMatch(Finding::isGood), findings::toString);
    }

    @Test
    void withoutTheLibraryNothingIsSaidOfItsList() throws IOException {
        plugTool();
        List<Finding> findings = new Doctor(fake.host(), new Vendors(List.of(0x6A5C)), Optional.empty()).findings();
        assertEquals(List.of(FOUND, LABEL + node + " can be used", FREE), texts(findings));
    }

    @Test
    void aDeviceThatTheKernelWasToldNotToUseIsTold() throws IOException {
        Path device = plugTool();
        Files.writeString(device.resolve("authorized"), "0\n");
        assertWrong(LABEL + "it is not authorized, so the kernel does not use it",
                "echo 1 | sudo tee " + device.resolve("authorized"), ofTool());
    }

    @Test
    void aClassThatIsNotSupportedIsTold() throws IOException {
        fake.addInterface(plugTool(), 0, "08", "usb-storage");
        assertWrong(LABEL + "the library does not support its class",
                "    orvex-usb describe --vendor 6A5C --index 0", findings(line("TOOL0001", 'u', 0, 0)));
    }

    @Test
    void aSystemThatShowsNothingLeavesTheList() throws IOException {
        Files.delete(root.resolve("sys/bus"));
        assertEquals(List.of(), ofTool());
        assertEquals("no device of the vendor 6A5C is listed", wrong(findings()).text());
        assertEquals("<cannot_open>6A5C:1001: could not be opened",
                wrong(findings("1:=6A5C:=1001:=0100:=<cannot_open>6A5C:1001:=?:=?:=x:=b:=0:=0:=end")).text());
    }

    @Test
    void onAMacAHidDeviceIsForTheUserAtTheScreen() throws IOException {
        fake.becomeMac();
        List<Finding> findings = findings(line("TOOL0001", 'h', 0, 0), line("TOOL0002", 'b', 0, 0));
        assertEquals(List.of(LABEL + "macOS lets the user at the Mac's screen open this HID device"),
                texts(findings));
        assertTrue(findings.get(0).isGood());
        assertTrue(String.join(" ", findings.get(0).remedy()).contains("Input Monitoring"), findings::toString);
    }

    @Test
    void onAMacALoginOverSshCannotOpenAHidDevice() throws IOException {
        fake.becomeMac();
        fake.logInOverSsh();
        assertWrong(LABEL + "macOS does not let a login over ssh open a HID device",
                "use it from a terminal on the Mac's own screen", findings(line("TOOL0001", 'h', 0, 0)));
        assertEquals(List.of(), findings(line("TOOL0002", 'b', 0, 0)));
    }

    @Test
    void aLoginOverSshIsNothingToLinux() throws IOException {
        fake.logInOverSsh();
        fake.addHidNode(fake.addInterface(plugTool(), 0, "03", "usbhid"), "hidraw3");
        List<Finding> findings = findings(line("TOOL0001", 'h', 0, 0));
        assertTrue(findings.stream().allMatch(Finding::isGood), findings::toString);
    }

    @Test
    void aDeviceThatLeavesWhileItIsLookedAtIsNone() throws IOException {
        Files.delete(plugTool().resolve("devnum"));
        assertTrue(wrong(findings()).text().startsWith("0 devices on the bus"));
    }

    @ParameterizedTest(name = "{1}")
    @CsvSource(delimiter = '|', value = {
        "x.so: libusb-1.0.so.0: cannot open shared object file: No such file or directory. | libusb-1.0 is missing"
                + " | sudo apt-get install libusb-1.0-0",
        "x.so: libhidapi-hidraw.so.0: cannot open shared object file: No such file or directory. | hidapi is missing"
                + " | sudo apt-get install libhidapi-hidraw0",
        "x.so: libusb-1.0.so.0: Kann die Shared-Object-Datei nicht \u00F6ffnen: Datei oder Verzeichnis nicht"
                + " gefunden. | libusb-1.0 is missing | sudo apt-get install libusb-1.0-0",
        "x.so: libusb-1.0.so.0: cannot open shared object file; its copy in the jar: libusb-1.0.so.0: libudev.so.1:"
                + " cannot open shared object file | libudev is missing | sudo apt-get install libudev1",
        "x.so: /usr/lib/libusb-1.0.so.0: file too short | cannot be loaded | Tried this: x.so: /usr/lib/libusb-1.0.so.0:",
        "x.so: libusb-1.0.so.0: cannot open shared object file; its copy in the jar: java.io.FileNotFoundException:"
                + " META-INF/native/linux-riscv64/libusb-1.0.so.0 is not in the jar | libusb-1.0 is missing"
                + " | sudo apt-get install libusb-1.0-0",
        "Library not loaded: /opt/homebrew/opt/libusb/lib/libusb-1.0.0.dylib | libusb-1.0 is missing"
                + " | brew install libusb",
        "x.so: wrong ELF class: ELFCLASS32 (Possible cause: architecture word width mismatch) | another processor"
                + " | a Java for the processor of the library",
        "x.so: cannot open shared object file: No such file or directory (Possible cause: can't load AARCH64 .so on a"
                + " AMD 64 platform) | another processor | a Java for the processor of the library",
        "tried: 'x.dylib' (mach-o file, but is an incompatible architecture (have 'x86_64', need 'arm64'))"
                + " | another processor | a Java for the processor of the library",
        "META-INF/native/linux-riscv64/libUSBAccessLink_3_47.so is not in the jar | no library for this processor"
                + " | -Dorvex.usb.library=FILE",
        "something else | cannot be loaded | something else"
    })
    void whyTheLibraryCannotBeLoadedIsTold(String said, String meaning, String remedy) {
        Finding finding = LoadingTrouble.of(new UnsatisfiedLinkError("Tried this: " + said));
        assertTrue(finding.text().contains(meaning), finding::toString);
        assertTrue(finding.remedy().get(0).contains(remedy), finding::toString);
    }
}
