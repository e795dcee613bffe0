package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.List;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

class ListUpdateTest extends UsbTest {
    /** Requests of a listing: the languages and the text for each of three texts, and the configuration. */
    private static final int READS_OF_A_DEVICE = 7;

    private void assertWorks(Device device) {
        open(device);
        assertEquals(6, device.write(0x01, pattern(6)));
        assertEquals(6, device.read(0x81, new byte[6]));
        assertEquals(0, device.close());
    }

    /** Updates the list until it has a record of the device. */
    private Device updateUntilListed(int list, String serial) {
        updateUntil(serial + " is listed", list, () -> records(list, serial) > 0);
        return find(list, serial);
    }

    /**
     * A device that is unplugged during an enumeration may add a record without texts, so only the records of one
     * device count.
     */
    private long records(int list, String serial) {
        return devices(list).stream().filter(d -> d.field(7).equals(serial)).count();
    }

    @Test
    void withoutAChangeNothingChanges() {
        int list = sessionWithList();
        List<String> before = lines(list);
        assertEquals(0, usb.usbUpdateDeviceList(list, 0));
        assertEquals(0, usb.usbUpdateDeviceList(list, 4711));
        assertEquals(before, lines(list));
    }

    @Test
    void aPulledDeviceKeepsItsPlaceAndGetsItBack() {
        int list = sessionWithList();
        List<String> before = lines(list);
        Device bench = find(list, "BENCH00001");

        bus.unplug("bench");
        updateUntilPresent(bench, false);
        List<String> without = lines(list);
        for (int i = 0; i < before.size(); i++) {
            String expected = i == bench.index() ? "0" + before.get(i).substring(1) : before.get(i);
            assertEquals(expected, without.get(i));
        }

        bus.plug("bench");
        updateUntilPresent(bench, true);
        assertEquals(before, lines(list).subList(0, before.size()));
        assertWorks(bench);
    }

    @Test
    void anotherDeviceIsUntouchedWhenOneIsPulled() {
        Device pair = open("PAIR0002");
        Device bench = find(pair.list(), "BENCH00001");
        bus.unplug("bench");
        updateUntilPresent(bench, false);
        assertEquals(6, pair.write(0x01, pattern(6)));
        assertEquals(6, pair.read(0x81, new byte[6]));
    }

    @Test
    void aNewDeviceIsAddedAtTheEnd() {
        int list = sessionWithList();
        List<String> before = lines(list);
        bus.plug("spare");
        Device spare = updateUntilListed(list, "SPARE005");
        assertEquals(before.size(), spare.index());
        assertEquals(before, lines(list).subList(0, before.size()));
        assertWorks(spare);
    }

    @Test
    void aDeviceThatWasAddedComesAndGoesLikeAnyOther() {
        int list = sessionWithList();
        bus.plug("spare");
        Device spare = updateUntilListed(list, "SPARE005");
        bus.unplug("spare");
        updateUntilPresent(spare, false);
        assertEquals(-131, spare.open());
        bus.plug("spare");
        updateUntilPresent(spare, true);
        assertWorks(spare);
    }

    @Test
    void aDeviceThatComesBackWithAnotherSerialNumberIsANewOne() {
        int list = sessionWithList();
        Device bench = find(list, "BENCH00001");
        bus.unplug("bench");
        updateUntilPresent(bench, false);
        bus.change("bench", "{\"serial\": \"BENCH00099\"}");
        bus.plug("bench");
        Device renamed = updateUntilListed(list, "BENCH00099");
        assertEquals(usb.usbGetDeviceListCount(list) - 1, renamed.index());
        assertFalse(bench.isPresent());
        assertEquals("BENCH00001", bench.field(7));
        assertWorks(renamed);
    }

    @Test
    void whenAllDevicesAreGoneAllAreAbsent() {
        int list = sessionWithList();
        List<String> before = lines(list);
        bus.unplug("bench");
        bus.unplug("pair");
        bus.unplug("composite");
        updateUntil("all absent", list, () -> devices(list).stream().noneMatch(Device::isPresent));
        assertEquals(before.stream().map(l -> "0" + l.substring(1)).toList(), lines(list).subList(0, before.size()));
    }

    @Test
    void anEmptyListIsFilledWhenADeviceComes() {
        openSession();
        int list = list(0x6A5E);
        assertEquals(0, usb.usbGetDeviceListCount(list));
        bus.plug("loner");
        Device loner = updateUntilListed(list, "LONE0015");
        assertEquals(0, loner.index());
        open(loner);
    }

    @Test
    void aReleasedListIsFilledAgainByTheNextChange() {
        openSession();
        int list = list(VENDOR);
        usb.usbReleaseDeviceList(list);
        bus.plug("spare");
        assertWorks(updateUntilListed(list, "SPARE005"));
        assertEquals(3, usb.usbGetDeviceListCount(list));
    }

    @Test
    void onlyTheFirstListOfAVendorLearnsOfItsChanges() {
        openSession();
        int first = list(VENDOR);
        int second = list(VENDOR, 0x1209);
        int later = list(0x1209);
        Device inSecond = find(second, "BENCH00001");
        bus.unplug("bench");
        updateUntilPresent(find(first, "BENCH00001"), false);
        assertEquals(0, usb.usbUpdateDeviceList(second, 0));
        assertTrue(inSecond.isPresent());

        bus.unplug("stranger");
        updateUntilPresent(find(second, "OTHER004"), false);
        assertFalse(inSecond.isPresent());
        assertEquals(0, usb.usbUpdateDeviceList(later, 0));
        assertTrue(find(later, "OTHER004").isPresent());
    }

    @Test
    void aSingleVendorListLearnsOfChangesWhenAnotherListWatchesItsVendor() {
        openSession();
        int single = singleList(0x1209);
        Device stranger = find(single, "OTHER004");
        list(VENDOR, 0x1209);
        bus.unplug("stranger");
        updateUntilPresent(stranger, false);
    }

    @Test
    void aListIsUpdatedByAllItsVendors() {
        int list = sessionWithList();
        bus.unplug("composite");
        updateUntilPresent(find(list, "COMP0003"), false);
        bus.unplug("bench");
        updateUntilPresent(find(list, "BENCH00001"), false);
    }

    @Test
    void changesAreSeenInALaterSessionToo() {
        usb.usbReleaseDeviceList(sessionWithList());
        usb.usbRelease(0);
        int list = sessionWithList();
        Device bench = find(list, "BENCH00001");
        bus.unplug("bench");
        updateUntilPresent(bench, false);
    }

    @Test
    void oneDeviceMayComeAndGoManyTimes() {
        int list = sessionWithList();
        Device bench = find(list, "BENCH00001");
        for (int i = 0; i < 10; i++) {
            bus.unplug("bench");
            updateUntilPresent(bench, false);
            bus.plug("bench");
            updateUntilPresent(bench, true);
            assertWorks(bench);
        }
        assertEquals(1, records(list, "BENCH00001"));
    }

    @Test
    @Tag("memory")
    void aDeviceWithATextThatCannotBeReadIsAbsentAndThereAsAnotherUntilItCanBeRead() {
        int list = sessionWithList();
        int before = usb.usbGetDeviceListCount(list);
        bus.fail("libusb_control_transfer", READS_OF_A_DEVICE + 1, -9);  // the first text of the second device
        bus.plug("spare");
        updateUntilListed(list, "SPARE005");
        Device absent = devices(list).stream().filter(d -> !d.isPresent()).findFirst().orElseThrow();
        Device twin = devices(list).stream().filter(d -> d.field(5).equals("?")).findFirst().orElseThrow();
        assertTrue(absent.index() < before && twin.index() >= before);
        assertTrue(twin.isPresent());
        assertEquals(absent.field(7), twin.field(7));

        bus.unplug("spare");
        updateUntilPresent(absent, true);
        assertFalse(twin.isPresent());
    }

    @Test
    @Tag("memory")
    void aListThatIsMadeWhenThisOneWasReleasedHasNoAbsentDevices() {
        int list = sessionWithList();
        bus.failNext("libusb_get_device_list", -1);
        bus.plug("spare");
        updateUntilPresent(find(list, "BENCH00001"), false);
        assertEquals(list, list(VENDOR, OTHER_VENDOR));
        assertFalse(find(list, "BENCH00001").isPresent());
        usb.usbReleaseDeviceList(list);
        int again = list(VENDOR, OTHER_VENDOR);
        assertTrue(again != list && devices(again).stream().allMatch(Device::isPresent));
        assertWorks(find(again, "BENCH00001"));
    }

    @Test
    @Tag("memory")
    void whenLibusbCannotEnumerateAllAreAbsentUntilTheNextChange() {
        int list = sessionWithList();
        Device bench = find(list, "BENCH00001");
        bus.failNext("libusb_get_device_list", -1);
        bus.plug("spare");
        updateUntilPresent(bench, false);
        bus.unplug("spare");
        updateUntilPresent(bench, true);
        assertWorks(bench);
    }
}
