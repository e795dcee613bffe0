package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.access.UsbChange.Kind;
import com.talvane.orvex.comm.tool.FakeHost;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Devices that a list cannot tell apart: twins, and those of which a text could not be read. */
class UsbDoubtTest extends AccessTest {
    private static final String ROOT = "orvex.usb.root";
    /** Requests that the library makes for a device when it lists it: six for the texts, one for the configuration. */
    private static final int READS_OF_A_DEVICE = 7;
    /** Two devices without any text. */
    private static final List<String> TWINS = List.of("nameless", "spare");
    private static final String NAMELESS = """
            {"productId": "0x1008", "manufacturer": null, "product": null, "serial": null}""";

    private final BlockingQueue<UsbChange> changes = new LinkedBlockingQueue<>();

    private UsbChange nextChange() throws InterruptedException {
        UsbChange change = changes.poll(AMPLE, TimeUnit.MILLISECONDS);
        assertTrue(change != null, "nothing came");
        return change;
    }

    private static List<UsbDevice> inDoubt(UsbDeviceList list, UsbDoubt doubt) {
        return list.devices().stream().filter(device -> device.doubt() == doubt).toList();
    }

    /** The list when it has two devices that look the same. */
    private UsbDeviceList withTwins() throws UsbException {
        bus.change("spare", NAMELESS);
        TWINS.forEach(bus::plug);
        UsbDeviceList list = list();
        await("both are listed", () -> {
            unchecked(list::update);
            return inDoubt(list, UsbDoubt.TWIN).size() == 2;
        });
        return list;
    }

    @Test
    void certainDevicesAreInNoDoubt() throws UsbException {
        UsbDeviceList list = list();
        assertEquals(list.devices(), inDoubt(list, UsbDoubt.NONE));
        assertEquals(UsbDoubt.NONE, new UsbChange(Kind.LEFT, device(BENCH), list).doubt());
    }

    @Test
    void twinsWithoutSerialNumbersAreNamed() throws Exception {
        UsbDeviceList list = withTwins();
        List<UsbDevice> twins = inDoubt(list, UsbDoubt.TWIN);
        assertEquals("?", twins.get(0).info().serial());
        assertEquals(twins.get(0).info(), twins.get(1).info());
        assertEquals(List.of("device " + twins.get(0).index(), "device " + twins.get(1).index()),
                twins.stream().map(UsbDevice::label).toList());
        session().onChange(changes::add);
        bus.unplug("nameless");
        UsbChange pull = nextChange();
        assertEquals(Kind.LEFT, pull.kind());
        assertEquals(UsbDoubt.TWIN, pull.doubt());
        assertTrue(pull.toString().endsWith(", absent, TWIN"), pull::toString);
        bus.plug("nameless");
        assertEquals(new UsbChange(Kind.CAME_BACK, pull.device(), list, UsbDoubt.TWIN), nextChange());
    }

    @Test
    @Tag("memory")
    void aDeviceThatLeavesBecauseATextCannotBeReadIsNamedAndComesBackByItself() throws Exception {
        UsbDeviceList list = session().list(VENDOR);
        session().onChange(changes::add);
        bus.fail("libusb_control_transfer", READS_OF_A_DEVICE + 1, -9); // the first text of the second device
        bus.plug("spare");
        UsbChange departure = nextChange();
        assertEquals(Kind.LEFT, departure.kind());
        assertEquals(UsbDoubt.UNREADABLE, departure.doubt());
        List<UsbChange> arrivals = List.of(nextChange(), nextChange());
        UsbChange standIn = arrivals.stream()
                .filter(each -> each.doubt() == UsbDoubt.UNREADABLE).findAny().orElseThrow();
        assertEquals("?", standIn.device().info().manufacturer());
        assertEquals(departure.device().info().serial(), standIn.device().info().serial());
        // The library itself reads the text again only when something else is plugged or pulled.
        assertEquals(new UsbChange(Kind.LEFT, standIn.device(), list), nextChange());
        assertEquals(new UsbChange(Kind.CAME_BACK, departure.device(), list), nextChange());
        assertEquals(List.of(), inDoubt(list, UsbDoubt.UNREADABLE));
        // When it then cannot read the text again, the device is still there.
        bus.fail("libusb_control_transfer", 1, -9); // the same text, now of the first device
        bus.unplug("spare");
        assertEquals("SPARE005", nextChange().device().info().serial());
        bus.plug("spare");
        assertEquals("SPARE005", nextChange().device().info().serial());
        assertEquals(List.of(), List.copyOf(changes));
        assertTrue(departure.device().isPresent());
    }

    @Test
    @Tag("memory")
    void aFurtherListIsReleasedWithTheSession() throws Exception {
        session().list(VENDOR);
        session().onChange(changes::add);
        bus.failNext("libusb_open", -3);
        bus.plug("spare");
        await("it can be read", () -> unchecked(() -> session().list(VENDOR).find("SPARE005").isPresent()));
        int further = ((ListedDevice) session().list(VENDOR).find("SPARE005").orElseThrow()).place().list();
        int first = ((ListedDevice) session().list(VENDOR).find(BENCH).orElseThrow()).place().list();
        assertNotEquals(first, further);
        session().close();
        assertTrue(session().raw.usb.usbGetDeviceListCount(first) <= 0);
        assertTrue(session().raw.usb.usbGetDeviceListCount(further) <= 0);
    }

    private List<UsbChange> nextTwo(Kind kind) throws InterruptedException {
        List<UsbChange> two = List.of(nextChange(), nextChange());
        assertEquals(List.of(kind, kind), two.stream().map(UsbChange::kind).toList(), two::toString);
        return two;
    }

    private static List<UsbDevice> devices(List<UsbChange> changes) {
        return changes.stream().map(UsbChange::device).toList();
    }

    /** The composite tool and its interface, which are known and have left. */
    private List<UsbDevice> compositeThatHasLeft() throws Exception {
        session().list(OTHER_VENDOR);
        session().onChange(changes::add);
        bus.unplug("composite");
        return devices(nextTwo(Kind.LEFT));
    }

    /** Both are there and work, and leave together. */
    private void assertBack(List<UsbDevice> both) throws Exception {
        List<UsbChange> back = nextTwo(Kind.CAME_BACK);
        assertEquals(both, devices(back));
        assertEquals(List.of(UsbDoubt.NONE, UsbDoubt.NONE), back.stream().map(UsbChange::doubt).toList());
        assertEquals(1, write(both.get(0).open(), 0x01, pattern(1)));
        assertEquals(1, write(both.get(1).open(), 0x02, pattern(1)));
        bus.unplug("composite");
        assertEquals(both, devices(nextTwo(Kind.LEFT)));
        assertEquals(List.of(), List.copyOf(changes));
        both.forEach(UsbDevice::close);
    }

    @Test
    @Tag("memory")
    void aCompositeDeviceThatCouldNotBeOpenedOnceComesBackWithItsInterface() throws Exception {
        List<UsbDevice> both = compositeThatHasLeft();
        bus.failNext("libusb_open", -3);
        bus.plug("composite");
        UsbDevice standIn = nextChange().device();
        assertTrue(standIn.info().isUnopenable(), standIn::line);
        assertEquals(List.of(both.get(0), both.get(1), standIn),
                inDoubt(session().list(OTHER_VENDOR), UsbDoubt.UNREADABLE));
        assertSame(standIn, nextChange().device());
        assertBack(both);
        bus.failNext("libusb_open", -3);
        bus.plug("composite");
        assertEquals(new UsbChange(Kind.CAME_BACK, standIn, session().list(OTHER_VENDOR), UsbDoubt.UNREADABLE),
                nextChange());
        assertSame(standIn, nextChange().device());
        assertBack(both);
    }

    /** Plugs the composite tool in while one read fails; returns what is listed instead of it and its interface. */
    private List<UsbDevice> standInsAfterFailureOf(int read) throws Exception {
        bus.fail("libusb_control_transfer", read, -9);
        bus.plug("composite");
        List<UsbChange> standIns = nextTwo(Kind.ARRIVED);
        assertEquals(List.of(UsbDoubt.UNREADABLE, UsbDoubt.UNREADABLE),
                standIns.stream().map(UsbChange::doubt).toList());
        assertEquals(devices(standIns), devices(nextTwo(Kind.LEFT)));
        return devices(standIns);
    }

    @Test
    @Tag("memory")
    void aCompositeDeviceWithATextThatCouldNotBeReadOnceComesBackWithItsInterface() throws Exception {
        List<UsbDevice> both = compositeThatHasLeft();
        assertEquals(serials(both), serials(standInsAfterFailureOf(1)));
        assertBack(both);
    }

    @Test
    @Tag("memory")
    void aDeviceWhoseSerialNumberCouldNotBeReadHasNone() throws Exception {
        List<UsbDevice> both = compositeThatHasLeft();
        List<UsbDevice> standIns = standInsAfterFailureOf(READS_OF_A_DEVICE - 1);
        assertEquals(List.of("?", "?_01"), serials(standIns));
        assertEquals("device " + standIns.get(1).index(), standIns.get(1).label());
        assertBack(both);
    }

    @Test
    @Tag("memory")
    void aDeviceThatNeverTellsItsTextsIsInDoubt() throws Exception {
        UsbDeviceList list = list();
        bus.plug("mute");
        await("it is listed", () -> {
            unchecked(list::update);
            return inDoubt(list, UsbDoubt.UNREADABLE).size() == 1;
        });
        assertEquals("?", inDoubt(list, UsbDoubt.UNREADABLE).get(0).info().serial());
        assertTrue(unchecked(list::update).isEmpty());
    }

    @Test
    @Tag("memory")
    void portsAreWhatTheSystemTells(@TempDir Path folder) throws Exception {
        System.setProperty(ROOT, folder.toString());
        try {
            UsbDeviceInfo bench = device(BENCH).info();
            UsbDeviceInfo composite = device("COMP0003_01").info();
            assertEquals(List.of(), bench.ports());
            FakeHost machine = new FakeHost(folder);
            Path first = machine.device(1, 0x1001, "");
            assertEquals(List.of("1-1"), bench.ports(), "the kernel could not read the serial number");
            machine.device(2, 0x1001, BENCH);
            machine.device(3, 0x1001, "BENCH0000");
            machine.device(4, 0x2001, "COMP0003");
            Files.writeString(machine.device(5, 0x1001, BENCH).resolve("idVendor"), "6a5d");
            Files.writeString(folder.resolve("sys/bus/usb/devices/1-4/idVendor"), "6a5d");
            assertEquals(List.of("1-2"), bench.ports());
            assertEquals(List.of("1-4"), composite.ports());
            assertEquals(List.of("1-1"), lineOf("?").ports(), "it has no serial number");
            assertEquals(List.of("1-1", "1-2", "1-3"), UsbDeviceInfo.parse(
                    "1:=6A5C:=1001:=0100:=<cannot_open>6A5C:1001:=<cannot_open>6A5C:1001:=?:=x:=b:=0:=0:=end").ports());
            Files.writeString(first.resolve("serial"), "PRICE\u20AC5\n");
            assertEquals(List.of("1-1"), lineOf("PRICE?5").ports(), "with a letter that the library does not have");
            assertEquals(List.of("1-1", "1-2", "1-3"), lineOf("?").ports(), "nor has any that the system knows");
            assertEquals(List.of(), lineOf("OTHER").ports());
            assertEquals(List.of(), UsbDeviceInfo.parse("0" + device(BENCH).line().substring(1)).ports());
        } finally {
            System.clearProperty(ROOT);
        }
    }

    private static UsbDeviceInfo lineOf(String serial) {
        return UsbDeviceInfo.parse("1:=6A5C:=1001:=0100:=Talvane:=Bench Tool:=" + serial + ":=x:=b:=0:=0:=end");
    }

    @Test
    @Tag("kernel")
    void theKernelTellsTheirPorts() throws Exception {
        UsbDeviceInfo bench = device(BENCH).info();
        assertEquals(1, bench.ports().size(), bench.ports()::toString);
        Path folder = Path.of("/sys/bus/usb/devices", bench.ports().get(0));
        assertEquals(BENCH, Files.readString(folder.resolve("serial")).strip());
        List<UsbDevice> twins = inDoubt(withTwins(), UsbDoubt.TWIN);
        assertEquals(2, twins.get(0).info().ports().size());
        assertEquals(twins.get(0).info().ports(), twins.get(1).info().ports());
        bus.unplug("nameless");
        await("one is left", () -> twins.get(0).info().ports().size() == 1);
    }

    @Test
    void lookingForNoSerialNumberTellsTheTwins() throws Exception {
        UsbDeviceList list = withTwins();
        List<UsbDevice> twins = inDoubt(list, UsbDoubt.TWIN);
        assertEquals(twins, assertThrows(UsbDuplicateException.class, () -> list.find("?")).devices());
    }
}
