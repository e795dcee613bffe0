package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.List;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Test;

class CompositeDeviceTest extends UsbTest {
    private static final String WHOLE = ":=6A5D:=2001:=0100:=Talvane:=Composite Tool:=COMP0003:=x:=b:=1:=0:=end";
    private static final String PART = ":=6A5D:=2001:=0100:=Talvane:=Data Port:=COMP0003_01:=x:=b:=2:=1:=end";

    /** Two interfaces; the second is listed as a separate record if it is vendor-specific. */
    private static final String INTERFACES = """
            {"interfaces": [
                {"number": 0, "class": 255, "subClass": 0, "endpoints": [
                    {"address": "0x01", "type": "bulk", "behaviour": "echo"},
                    {"address": "0x81", "type": "bulk", "behaviour": "echo"}]},
                {"number": 1, "class": 255, "subClass": %d, "string": "%s", "endpoints": [
                    {"address": "0x02", "type": "bulk", "behaviour": "echo"},
                    {"address": "0x82", "type": "bulk", "behaviour": "echo"}]}]}""";
    private static final int ROUNDS = 100;

    private static void assertWorks(Device device, int endpoint) {
        assertEquals(9, device.write(endpoint, pattern(9)));
        byte[] echo = new byte[9];
        assertEquals(9, device.read(endpoint, echo));
        assertArrayEquals(pattern(9), echo);
    }

    @Test
    void aCompositeDeviceIsListedAsAWholeAndThenAsItsInterface() {
        openSession();
        assertEquals(List.of("1" + WHOLE, "1" + PART), lines(list(OTHER_VENDOR)));
    }

    @Test
    void interfacesComeAfterAllWholeDevices() {
        int list = sessionWithList();
        assertEquals(List.of("0", "0", "1"), lines(list).stream()
                .limit(3).map(l -> l.split(":=")[9]).sorted().toList());
        assertEquals("COMP0003_01", new Device(usb, list, 3).field(7));
    }

    @Test
    void bothAreOpenAtOnceEachOnItsInterface() {
        Device whole = open("COMP0003");
        Device part = open(find(whole.list(), "COMP0003_01"));
        assertWorks(whole, 0x01);
        assertWorks(part, 0x02);
        assertEquals(0, whole.close());
        assertWorks(part, 0x02);
    }

    @Test
    void bothWorkAtTheSameTime() throws Exception {
        Device whole = open("COMP0003");
        Device part = open(find(whole.list(), "COMP0003_01"));
        List<Future<Integer>> both = List.of(onAnotherThread(() -> echoes(whole, 0x01)),
                onAnotherThread(() -> echoes(part, 0x02)));
        for (Future<Integer> each : both) {
            assertEquals(ROUNDS, result(each));
        }
    }

    private static int echoes(Device device, int endpoint) {
        for (int i = 0; i < ROUNDS; i++) {
            assertWorks(device, endpoint);
        }
        return ROUNDS;
    }

    @Test
    void unplugEndsTransfersOfBothAndBothClose() throws Exception {
        Device whole = open("COMP0003");
        Device part = open(find(whole.list(), "COMP0003_01"));
        Future<Integer> ofWhole = whileWaiting("composite", 0x81, () -> whole.read(0x81, 0, new byte[64]));
        Future<Integer> ofPart = whileWaiting("composite", 0x82, () -> part.read(0x82, 0, new byte[64]));
        bus.unplug("composite");
        assertEquals(0, result(ofWhole));
        assertEquals(0, result(ofPart));
        assertEquals(0, whole.close());
        assertEquals(0, part.close());
    }

    @Test
    void theInterfaceHasItsOwnDescriptorsAndTheDevicesOwn() {
        Device part = find(sessionWithList(), "COMP0003_01");
        byte[] buffer = new byte[512];
        assertEquals(30, usb.usbGetDeviceDescriptor(part.list(), part.index(), 2, 0, 512, buffer));
        assertArrayEquals(HexFormat.of().parseHex("0904010003FFFF00"), Arrays.copyOf(buffer, 8));
        assertEquals(18, usb.usbGetDeviceDescriptor(part.list(), part.index(), 1, 0, 18, buffer));
        assertEquals(-131, usb.usbGetDeviceDescriptor(part.list(), part.index(), 5, 0x01, 7, buffer));
        assertEquals(7, usb.usbGetDeviceDescriptor(part.list(), part.index(), 5, 0x82, 7, buffer));
        byte[] endpoints = new byte[24];
        assertEquals(3, usb.usbGetEndpointList(part.list(), part.index(), endpoints));
        assertArrayEquals(
                HexFormat.of().parseHex("8300400003000100" + "0200400002000000" + "8200400002000100"), endpoints);
    }

    @Test
    void aDeviceOfAnotherVendorIsNeverSplit() {
        openSession();
        assertEquals(
                List.of("1:=1209:=0001:=0100:=Somebody:=Other Thing:=OTHER004:=x:=b:=0:=0:=end"),
                lines(list(0x1209)));
    }

    @Test
    void theFirstInterfaceIsNeverSplitOff() {
        assertEquals("0", find(sessionWithList(), "BENCH00001").field(10));
    }

    @Test
    void theSecondBulkEndpointMayBelongToALaterInterface() {
        bus.plug("spread");
        int list = sessionWithList();
        Device part = find(list, "SPREAD16_01");
        assertEquals("2", part.field(10));
        assertEquals("1", part.field(11));
        assertEquals("1", find(list, "SPREAD16").field(10));
        assertEquals(1, usb.usbGetEndpointList(list, part.index(), null));
    }

    @Test
    void bothComeAndGoTogether() {
        int list = sessionWithList();
        Device whole = find(list, "COMP0003");
        Device part = find(list, "COMP0003_01");
        bus.unplug("composite");
        updateUntilPresent(whole, false);
        assertEquals("0" + WHOLE, whole.line());
        assertEquals("0" + PART, part.line());
        bus.plug("composite");
        updateUntilPresent(whole, true);
        assertEquals("1" + PART, part.line());
        assertEquals(1, lines(list).stream().filter(l -> l.equals("1" + PART)).count());
        assertWorks(open(whole), 0x01);
        assertWorks(open(part), 0x02);
    }

    private static String withPart(String name) {
        return INTERFACES.formatted(255, name);
    }

    private static String withoutPart() {
        return INTERFACES.formatted(0, "Data Port");
    }

    /** Unplugs a device, and plugs it in again with another description. */
    private void comeBack(String id, Device whole, String patch) {
        bus.unplug(id);
        updateUntilPresent(whole, false);
        bus.change(id, patch);
        bus.plug(id);
        updateUntilPresent(whole, true);
    }

    /** Another device comes and goes: at least two updates that do not concern the composite device. */
    private void anotherComesAndGoes(int list) {
        bus.plug("spare");
        updateUntil("the other is there", list, () -> isPresent(list, "SPARE005"));
        bus.unplug("spare");
        updateUntilPresent(find(list, "SPARE005"), false);
    }

    private boolean isPresent(int list, String serial) {
        return devices(list).stream().anyMatch(d -> d.field(7).equals(serial) && d.isPresent());
    }

    private static List<Boolean> presence(List<Device> devices) {
        return devices.stream().map(Device::isPresent).toList();
    }

    private Device named(int list, String product) {
        return devices(list).stream().filter(d -> d.field(6).equals(product)).findFirst().orElseThrow();
    }

    @Test
    void aPartThatComesBackWithAnotherNameStaysBesideTheOldOne() {
        int list = sessionWithList();
        Device whole = find(list, "COMP0003");
        Device part = find(list, "COMP0003_01");
        comeBack("composite", whole, withPart("New Port"));
        Device renamed = named(list, "New Port");
        for (int i = 0; i < 2; i++) {
            anotherComesAndGoes(list);
            assertEquals(List.of(true, true, true), presence(List.of(whole, part, renamed)));
        }
        assertWorks(open(renamed), 0x02);
        bus.unplug("composite");
        updateUntilPresent(whole, false);
        assertEquals(List.of(false, false), presence(List.of(part, renamed)));
    }

    @Test
    void aPartThatAppearsLaterLeavesWithoutTheWholeDevice() {
        bus.change("spread", withoutPart());
        bus.plug("spread");
        int list = sessionWithList();
        Device whole = find(list, "SPREAD16");
        assertEquals("0", whole.field(10));
        comeBack("spread", whole, withPart("Late Port"));
        Device part = named(list, "Late Port");
        anotherComesAndGoes(list);
        assertEquals(List.of(true, true), presence(List.of(whole, part)));
        comeBack("spread", whole, withoutPart());
        anotherComesAndGoes(list);
        assertEquals(List.of(true, false), presence(List.of(whole, part)));
    }

    /** Plugs in two composite tools without serial numbers, so that their interfaces look alike. */
    private List<Device> listOfTwins() {
        for (String id : List.of("spread", "loner")) {
            bus.change(id, withPart("Twin Port"));
            bus.change(id, """
                    {"vendorId": "0x6A5D", "productId": "0x2002", "serial": null, "product": "%s"}""".formatted(id));
            bus.plug(id);
        }
        List<Device> twins = new ArrayList<>();
        await("both are listed with their parts", () -> {
            usb.usbRelease(0);
            twins.clear();
            devices(sessionWithList()).stream().filter(d -> d.field(3).equals("2002")).forEach(twins::add);
            return twins.stream().filter(d -> d.field(6).equals("Twin Port")).count() == 2;
        });
        assertEquals(List.of("?", "?", "?_01", "?_01"), twins.stream().map(d -> d.field(7)).toList());
        return twins;
    }

    /** Unplugs one of two identical devices; the presence of the records then stays the same over further updates. */
    private List<Device> assertPresenceWithout(int pulled, Boolean... expected) {
        List<Device> twins = listOfTwins();
        bus.unplug(twins.get(pulled).field(6));
        updateUntilPresent(twins.get(pulled), false);
        for (int i = 0; i < 2; i++) {
            anotherComesAndGoes(twins.get(0).list());
            assertEquals(List.of(expected), presence(twins));
        }
        return twins;
    }

    @Test
    void ofTwoAlikeTheLaterTakesItsPartAlong() {
        assertPresenceWithout(1, true, false, true, false);
    }

    @Test
    void ofTwoAlikeTheEarlierLeavesItsPartToTheOther() {
        List<Device> twins = assertPresenceWithout(0, false, true, true, true);
        assertWorks(open(twins.get(2)), 0x02);
    }
}
