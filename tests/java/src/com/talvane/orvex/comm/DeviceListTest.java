package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

class DeviceListTest extends UsbTest {
    private static final int NOBODY = 0xFFF0;

    private List<String> serials(int list) {
        return devices(list).stream().map(d -> d.field(7)).sorted().toList();
    }

    @Test
    void listsTheDevicesOfTheWantedVendorsOnly() {
        openSession();
        assertEquals(List.of("BENCH00001", "PAIR0002"), serials(list(VENDOR)));
        assertEquals(List.of("COMP0003", "COMP0003_01"), serials(list(OTHER_VENDOR)));
        assertEquals(List.of("BENCH00001", "OTHER004", "PAIR0002"), serials(list(0x1209, VENDOR)));
        assertEquals(List.of(), serials(list(NOBODY)));
    }

    @Test
    void handlesCountUp() {
        openSession();
        int first = list(VENDOR);
        assertEquals(first + 1, list(NOBODY));
        assertEquals(first + 2, list(OTHER_VENDOR));
    }

    @Test
    void theSameVendorsInAnyOrderGiveTheSameList() {
        openSession();
        int list = list(VENDOR, OTHER_VENDOR);
        assertEquals(list, list(VENDOR, OTHER_VENDOR));
        assertEquals(list, list(OTHER_VENDOR, VENDOR));
        assertNotEquals(list, list(VENDOR));
        assertNotEquals(list, list(VENDOR, OTHER_VENDOR, 0x1209));
    }

    @Test
    void aListMadeForOneVendorTwiceServesAlsoForItAndAnother() {
        openSession();
        int doubled = list(VENDOR, VENDOR);
        assertEquals(doubled, list(VENDOR, OTHER_VENDOR));
    }

    @Test
    void anEmptyListIsNotUsedAgain() {
        openSession();
        assertNotEquals(list(NOBODY), list(NOBODY));
    }

    @Test
    void aReleasedListIsNotUsedAgain() {
        openSession();
        int list = list(VENDOR);
        assertEquals(0, usb.usbReleaseDeviceList(list));
        assertNotEquals(list, list(VENDOR));
    }

    @Test
    void noVendorsMakeAnEmptyListWithAHandleOfItsOwn() {
        openSession();
        int list = list();
        assertEquals(0, usb.usbGetDeviceListCount(list));
        assertEquals(list + 1, list());
    }

    @Test
    void aNullArrayCountsAsNoVendors() {
        openSession();
        int empty = list();
        int list = usb.usbCreateDeviceList2(0, null);
        assertEquals(empty + 1, list);
        assertEquals(0, usb.usbGetDeviceListCount(list));
    }

    @Test
    void noVendorsGiveAListWhoseFirstIdIsMinusOneWhenItHasDevices() {
        openSession();
        int all = singleList(ANY_VENDOR);
        assertEquals(all, list());
        usb.usbReleaseDeviceList(all);
        int later = list(ANY_VENDOR, VENDOR);
        assertEquals(later, list());
    }

    @Test
    void sixteenVendorsAreTakenAndTheRestIsLeftOut() {
        openSession();
        int[] vendors = new int[20];
        Arrays.fill(vendors, NOBODY);
        vendors[15] = VENDOR;
        vendors[16] = OTHER_VENDOR;
        int[] given = vendors.clone();
        assertEquals(List.of("BENCH00001", "PAIR0002"), serials(list(vendors)));
        assertTrue(Arrays.equals(given, vendors), "the array was changed");
    }

    @Test
    void minusOneMatchesNoDevice() {
        openSession();
        assertEquals(List.of(), serials(list(ANY_VENDOR)));
        assertEquals(List.of("BENCH00001", "PAIR0002"), serials(list(ANY_VENDOR, VENDOR)));
    }

    @Test
    void unknownAndReleasedListsCountNothing() {
        openSession();
        int list = list(VENDOR);
        assertEquals(0, usb.usbGetDeviceListCount(list + 1));
        assertEquals(0, usb.usbGetDeviceListCount(-1));
        assertEquals(0, usb.usbReleaseDeviceList(list));
        assertEquals(0, usb.usbGetDeviceListCount(list));
    }

    @Test
    void releaseAndUpdateKnowReleasedListsAndRefuseUnknownOnes() {
        openSession();
        int list = list(VENDOR);
        assertEquals(0, usb.usbReleaseDeviceList(list));
        assertEquals(0, usb.usbReleaseDeviceList(list));
        assertEquals(0, usb.usbUpdateDeviceList(list, 0));
        assertEquals(-103, usb.usbReleaseDeviceList(list + 1));
        assertEquals(-103, usb.usbUpdateDeviceList(list + 1, 0));
    }

    @Test
    void anIndexBehindTheEndNamesNothing() {
        openSession();
        int list = list(VENDOR);
        for (int index : new int[] {usb.usbGetDeviceListCount(list), 1000, -1}) {
            assertEquals("", usb.usbGetDeviceInfo(list, index));
            assertEquals(-114, usb.usbOpenDevice(list, index));
            assertEquals(-114, usb.usbRestartDevice(list, index));
            assertEquals(-114, usb.usbGetEndpointList(list, index, null));
            assertEquals(-114, usb.usbGetDeviceDescriptor(list, index, 1, 0, 18, new byte[18]));
        }
    }

    @Test
    void anEmptyListHasNoFirstDevice() {
        openSession();
        assertEquals("", usb.usbGetDeviceInfo(list(NOBODY), 0));
        assertEquals(-114, usb.usbOpenDevice(list(NOBODY), 0));
    }

    @Test
    void aSingleVendorListIsUsedAgain() {
        openSession();
        int list = singleList(VENDOR);
        assertEquals(List.of("BENCH00001", "PAIR0002"), serials(list));
        assertEquals(list, singleList(VENDOR));
    }

    @Test
    void aListOfTwoVendorsDoesNotServeForASingleOne() {
        openSession();
        int both = list(VENDOR, OTHER_VENDOR);
        assertNotEquals(both, singleList(VENDOR));
    }

    @Test
    void anyVendorListsAllAndSplitsCompositeDevices() {
        openSession();
        List<String> all = serials(singleList(ANY_VENDOR));
        assertTrue(
                all.containsAll(List.of("BENCH00001", "PAIR0002", "COMP0003", "COMP0003_01", "OTHER004")),
                all::toString);
    }

    @Test
    void devicesOfASingleVendorListWork() {
        openSession();
        Device bench = open(find(singleList(VENDOR), "BENCH00001"));
        assertEquals(5, bench.write(0x01, pattern(5)));
        assertEquals(5, bench.read(0x81, new byte[5]));
    }

    @Test
    void aListOfOneVendorServesForTheSingleCallToo() {
        openSession();
        assertEquals(list(VENDOR), singleList(VENDOR));
    }

    @Test
    void releasingASingleVendorListLeavesTheOtherListsDevicesUsable() {
        int list = sessionWithList();
        usb.usbReleaseDeviceList(singleList(VENDOR));
        Device bench = open(find(list, "BENCH00001"));
        assertEquals(5, bench.write(0x01, pattern(5)));
    }

    @Test
    @Tag("memory")
    void aDeviceThatCannotBeOpenedIsListedAllTheSame() {
        openSession();
        bus.plug("locked");
        int list = list(VENDOR);
        Device locked = devices(list).stream().filter(d -> d.field(3).equals("100A")).findFirst().orElseThrow();
        assertEquals(
                "1:=6A5C:=100A:=0100:=<cannot_open>6A5C:100A:=<cannot_open>6A5C:100A:=?:=x:=b:=0:=0:=end",
                locked.line());
        assertEquals(-131, usb.usbGetDeviceDescriptor(list, locked.index(), 1, 0, 18, new byte[18]));
        assertEquals(0, usb.usbGetEndpointList(list, locked.index(), null));
        assertEquals(-107, locked.open());
    }

    @Test
    @Tag("memory")
    void aDeviceWhoseDescriptorCannotBeReadIsLeftOut() {
        openSession();
        int all = usb.usbGetDeviceListCount(list(VENDOR, OTHER_VENDOR, 0x1209, NOBODY));
        bus.failNext("libusb_get_device_descriptor", -1);
        int read = usb.usbGetDeviceListCount(list(VENDOR, OTHER_VENDOR, 0x1209));
        assertTrue(0 < read && read < all, () -> read + " of " + all);
    }

    @Test
    @Tag("memory")
    void whenLibusbCannotEnumerateTheListIsEmptyAndHasAHandle() {
        openSession();
        int before = list(NOBODY);
        bus.failNext("libusb_get_device_list", -11);
        int list = list(VENDOR);
        assertEquals(before + 1, list);
        assertEquals(0, usb.usbGetDeviceListCount(list));
        assertEquals(List.of("BENCH00001", "PAIR0002"), serials(list(VENDOR)));
    }
}
