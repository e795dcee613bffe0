package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.Future;
import java.util.function.BooleanSupplier;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** HID devices in lists, opened and closed, plugged and unplugged. */
class HidDeviceTest extends HidTest {
    private static final String LINE = ":=6A5C:=1020:=0100:=Talvane:=HID Tool:=HIDT0021:=x:=h:=0:=0:=end";
    private static final byte[] CONTROL = HexFormat.of().parseHex("8006000100001200" + "00".repeat(18));

    @TempDir
    private Path folder;

    private static void assertEchoes(Device hid) {
        byte[] echo = new byte[REPORT];
        assertEquals(REPORT, write(hid, pattern(REPORT)));
        assertEquals(REPORT, read(hid, echo));
        assertArrayEquals(pattern(REPORT), echo);
    }

    private static void assertNotOpenInside(Device hid) {
        assertEquals(-109, write(hid, pattern(3)));
        assertEquals(-150, read(hid, new byte[1], 10));
        assertEquals(-109, hid.close());
        assertEquals(-114, hid.close());
        assertEquals(-114, write(hid, pattern(3)));
    }

    @Test
    void theInformationLineTellsThatItIsAHidDevice() {
        assertEquals("1" + LINE, plugHid().line());
    }

    @Test
    @Tag("unloading")
    @Tag("linux")
    void aClassLoaderThatIsGivenUpWithAnOpenDeviceTakesItsReadThreadAlong() throws Exception {
        openSession();
        ChildVm.Outcome child = new ChildVm().without(NativeLibrary.PATH_PROPERTY).with("-Duser.home=" + folder)
                .withoutEnvironment("XDG_CACHE_HOME").withBus(bus.socketForChild(folder))
                .run("forgetHid", "raw", "released", "safe");
        assertEquals("raw: 2 libraries, then 1\nreleased: 2 libraries, then 1\nsafe: 2 libraries, then 1\n", child.out(),
                child.err());
        assertEquals(0, child.status(), child.err());
    }

    @Test
    void itIsFoundInEveryKindOfList() {
        plugHid();
        assertEquals("1" + LINE, find(singleList(VENDOR), SERIAL).line());
        assertEquals("1" + LINE, find(singleList(ANY_VENDOR), SERIAL).line());
    }

    @Test
    void itsDescriptorsAndEndpointsAreKnown() {
        Device hid = plugHid();
        byte[] buffer = new byte[512];
        byte[] configuration = HexFormat.of().parseHex("09022900010100803209040000020300000009211101000122");
        assertEquals(41, usb.usbGetDeviceDescriptor(hid.list(), hid.index(), 2, 0, 512, buffer));
        assertArrayEquals(configuration, Arrays.copyOf(buffer, configuration.length));
        assertEquals(18, usb.usbGetDeviceDescriptor(hid.list(), hid.index(), 1, 0, 512, buffer));
        assertEquals(7, usb.usbGetDeviceDescriptor(hid.list(), hid.index(), 5, 0x81, 512, buffer));
        byte[] endpoints = new byte[16];
        assertEquals(2, usb.usbGetEndpointList(hid.list(), hid.index(), endpoints));
        assertArrayEquals(HexFormat.of().parseHex("8100400003000100" + "0100400003000000"), endpoints);
    }

    @Test
    void openAndCloseAnswerAsForAnyDevice() {
        Device hid = openHid();
        assertEquals(-105, hid.open());
        assertEchoes(hid);
        assertEquals(0, hid.close());
        assertEquals(-114, hid.close());
        assertEquals(0, hid.open());
        assertEchoes(hid);
    }

    @Test
    void whatReportsCannotDoIsNotOffered() {
        Device hid = openHid();
        assertEquals(-120, hid.write(OUT, pattern(3)));
        assertEquals(-120, hid.read(IN, new byte[3]));
        assertEquals(-120, hid.cancel(IN));
        assertEquals(-120, hid.controlRead(CONTROL.clone()));
        assertEquals(-120, hid.controlWrite(CONTROL.clone()));
        assertEquals(-120, usb.usbResetDevice(hid.list(), hid.index()));
        assertEquals(-120, usb.usbWriteBulkPipeEx(hid.list(), hid.index(), OUT, 3, 100, pattern(3), 64, 0));
        assertEquals(-120, usb.usbReadBulkPipeEx(hid.list(), hid.index(), IN, 3, 100, new byte[3], 64, 0));
        assertEchoes(hid);
    }

    @Test
    void theEndpointDoesNotMatter() {
        Device hid = openHid();
        assertEquals(REPORT, hid.writeInterrupt(0x7F, pattern(REPORT)));
        assertEquals(REPORT, hid.readInterrupt(0x00, new byte[REPORT]));
    }

    @Test
    void unplugEndsNothingEarlyAndTheDeviceIsOpenedAgain() throws Exception {
        Device hid = openHid();
        CountDownLatch reading = new CountDownLatch(1);
        Future<Integer> read = onAnotherThread(() -> {
            reading.countDown();
            return read(hid, new byte[1], 2000);
        });
        reading.await();
        bus.unplug(ID);
        assertEquals(-150, result(read));
        await("a write notices", () -> write(hid, pattern(3)) == -112);
        assertEquals(0, hid.close());
        updateUntilPresent(hid, false);
        assertEquals("0" + LINE, hid.line());
        assertEquals(-131, hid.open());

        bus.plug(ID);
        updateUntilPresent(hid, true);
        assertEquals("1" + LINE, hid.line());
        assertEchoes(openWorking(hid));
        assertEquals(1, devices(hid.list()).stream().filter(d -> d.field(7).equals(SERIAL)).count());
    }

    @Test
    void aHidDeviceThatComesWhileOthersAreListedIsAddedWithItsSerialNumber() {
        int list = sessionWithList();
        int before = usb.usbGetDeviceListCount(list);
        bus.plug(ID);
        updateUntil("the device is listed", list, () -> usb.usbGetDeviceListCount(list) > before);
        assertEquals(SERIAL, new Device(usb, list, before).field(7));
    }

    @Test
    void openAnswersNothingOfADeviceThatLeftSinceTheListWasMade() {
        Device hid = plugHid();
        bus.unplug(ID);
        await("the HID driver has left the device", () -> {
            assertEquals(0, hid.open());
            boolean left = write(hid) == -109;
            if (!left) {
                hid.close();
            }
            return left;
        });
        assertNotOpenInside(hid);
    }

    @Test
    @Tag("memory")
    void openAnswersNothingOfAHidDriverThatRefuses() {
        Device hid = plugHid();
        bus.failNext("hid open", -1);
        assertEquals(0, hid.open());
        assertNotOpenInside(hid);
        assertEchoes(open(hid));
    }

    @Test
    @Tag("memory")
    void aReportThatCannotBeSentEndsTheWrite() {
        Device hid = openHid();
        bus.fail("hid write", 2, -1);
        assertEquals(-112, write(hid, pattern(3 * REPORT)));
        assertEquals(1, bus.received(ID, OUT).size());
    }

    @Test
    void withoutSerialNumberItIsAPlainDeviceThatTheSystemHolds() {
        bus.change(ID, "{\"serial\": null}");
        bus.plug(ID);
        openSession();
        BooleanSupplier held = () -> {
            int list = usb.usbCreateDeviceList(0, VENDOR);
            boolean answer = devices(list).stream()
                    .filter(d -> d.field(6).equals("HID Tool"))
                    .anyMatch(d -> d.open() == -108 && d.field(7).equals("?") && d.field(9).equals("b"));
            usb.usbReleaseDeviceList(list);
            return answer;
        };
        await("it is listed as a plain device and cannot be claimed", held);
    }

    @Test
    void aCompositeDeviceMayBeginWithAHidInterface() {
        Device whole = openWorking(plugHid("hidpair", "HIDP0022"));
        Device part = open(find(whole.list(), "HIDP0022_01"));
        assertTrue(whole.line().endsWith(":=HIDP0022:=x:=h:=1:=0:=end"), whole.line());
        assertTrue(part.line().endsWith(":=Data Port:=HIDP0022_01:=x:=b:=2:=1:=end"), part.line());
        for (int i = 0; i < 20; i++) {
            assertEchoes(whole);
            assertEquals(7, part.write(0x02, pattern(7)));
            assertEquals(7, part.read(0x82, new byte[7]));
        }
        assertEquals(0, whole.close());
        assertEquals(7, part.write(0x02, pattern(7)));
        assertFalse(part.line().contains(":=h:="), part.line());
    }
}
