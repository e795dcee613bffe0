package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.UsbAccessCode;
import java.util.List;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.MethodSource;

/** Sessions and lists of the safe layer, the information about devices, and changes of the lists. */
class UsbSessionTest extends AccessTest {
    static Stream<int[]> impossibleVendors() {
        return Stream.of(
                new int[0], new int[] {-1}, new int[] {0x10000}, new int[] {VENDOR, VENDOR},
                IntStream.range(0, 17).toArray());
    }

    @Test
    void theMessageOfVendorsThatAreGivenTwiceHasAllOfThem() throws UsbException {
        UsbSession session = session();
        assertEquals("a vendor id is given twice: 0x6A5C, 0x0001, 0x6A5C",
                assertThrows(IllegalArgumentException.class, () -> session.list(0x6A5C, 1, 0x6A5C)).getMessage());
    }

    @ParameterizedTest
    @MethodSource("impossibleVendors")
    void vendorsThatCannotBeAreRefused(int[] vendors) throws UsbException {
        UsbSession session = session();
        assertThrows(IllegalArgumentException.class, () -> session.list(vendors));
    }

    @Test
    void theBoundsOfVendorsAreAllowed() throws UsbException {
        assertEquals(List.of(), session().list(IntStream.range(0, 15).toArray()).devices());
        assertEquals(List.of(), session().list(0xFFFF).devices());
    }

    @Test
    void theSameVendorsGiveTheSameListAndNoOtherListMayHaveThem() throws UsbException {
        UsbDeviceList list = session().list(VENDOR, OTHER_VENDOR);
        assertSame(list, session().list(OTHER_VENDOR, VENDOR));
        assertThrows(IllegalArgumentException.class, () -> session().list(VENDOR));
        assertThrows(IllegalArgumentException.class, () -> session().list(0x1209, OTHER_VENDOR));
        assertNotSame(list, session().list(0x1209));
    }

    @Test
    void aProcessHasOneSessionAtATime() throws UsbException {
        session();
        assertEquals(UsbAccessCode.SESSION_OPEN, assertThrows(UsbBusyException.class, UsbSession::open).code());
        assertFalse(list().devices().isEmpty());
        closeSession();
        UsbSession.open().close();
    }

    @Test
    @Tag("memory")
    void aSessionThatCannotStartLeavesTheWayFree() throws UsbException {
        bus.failNext("libusb_init", -11);
        UsbException failure = assertThrows(UsbException.class, UsbSession::open);
        assertEquals(UsbAccessCode.NO_MEMORY, failure.code());
        assertEquals("open a session", failure.attempted());
        UsbSession.open().close();
    }

    @Test
    void nothingWorksAfterTheSessionIsClosed() throws UsbException {
        UsbDeviceList list = list();
        UsbDevice bench = open(BENCH);
        UsbSession session = session();
        session.close();
        session.close();
        assertFalse(bench.isOpen());
        assertThrows(IllegalStateException.class, () -> session.list(VENDOR));
        assertThrows(IllegalStateException.class, session::everything);
        assertThrows(IllegalStateException.class, list::devices);
        assertThrows(IllegalStateException.class, list::update);
        assertThrows(IllegalStateException.class, bench::open);
        assertThrows(IllegalStateException.class, bench::endpoints);
        assertThrows(IllegalStateException.class, () -> bench.descriptor(1, 0));
        assertThrows(IllegalStateException.class, () -> read(bench, 0x81, new byte[64]));
        bench.close();
        assertEquals(BENCH, bench.info().serial());
        assertTrue(session.raw.threads.isShutdown());
        assertTrue(session.raw.usb.usbGetDeviceListCount(((ListedDevice) bench).place().list()) <= 0);
    }

    @Test
    void whatIsKnownOfADeviceNeedsNoOpening() throws UsbException {
        UsbDevice bench = device(BENCH);
        assertEquals("1:=6A5C:=1001:=0100:=Talvane:=Bench Tool:=BENCH00001:=x:=b:=0:=0:=end", bench.line());
        assertEquals(UsbDeviceInfo.parse(bench.line()), bench.info());
        assertEquals(bench, list().devices().get(bench.index()));
        assertEquals(BENCH, bench.label());
        assertEquals(14, bench.endpoints().size());
        assertEquals(0x81, bench.endpoints().get(1).address());
        assertTrue(bench.endpoints().get(1).isIn());
        assertEquals(3, bench.endpoints().get(2).attributes());
        assertTrue(session().everything().contains(bench.info()));
    }

    @Test
    void descriptorsHaveTheirExactLength() throws UsbException {
        UsbDevice bench = device(BENCH);
        assertEquals(18, bench.descriptor(1, 0).length);
        assertEquals(9 + 9 + 14 * 7, bench.descriptor(2, 0).length);
        assertArrayEquals("Talvane".getBytes(), bench.descriptor(3, 1));
        assertEquals(7, bench.descriptor(5, 0x81).length);
        assertEquals(0, bench.descriptor(5, 0x8F).length);
        for (int[] wrong : new int[][] {{0, 0}, {4, 0}, {6, 0}, {1, 1}, {2, 1}, {3, 0}, {3, 4}, {5, -1}, {5, 0x100}}) {
            assertThrows(IllegalArgumentException.class, () -> bench.descriptor(wrong[0], wrong[1]));
        }
    }

    @Test
    void anUpdateTellsWhoCameAndWhoLeftOnce() throws UsbException {
        UsbDeviceList list = list();
        UsbDevice bench = device(BENCH);
        assertTrue(list.update().isEmpty());
        bus.unplug("bench");
        assertEquals(List.of(bench), untilChanged(list).left());
        assertTrue(list.find(BENCH).isEmpty());
        assertTrue(list.devices().contains(bench));
        assertThrows(UsbDeviceGoneException.class, bench::open);
        assertTrue(list.update().isEmpty());
        bus.plug("bench");
        assertEquals(List.of(bench), untilChanged(list).came());
        assertSame(bench, device(BENCH));
        bench.open();
    }

    @Test
    void aDeviceThatIsNewIsAdded() throws UsbException {
        UsbDeviceList list = list();
        int before = list.devices().size();
        bus.plug("spare");
        assertEquals(List.of("SPARE005"), serials(untilChanged(list).came()));
        assertEquals(before, device("SPARE005").index());
    }

    private static UsbDeviceList.Changes untilChanged(UsbDeviceList list) {
        UsbDeviceList.Changes[] changes = new UsbDeviceList.Changes[1];
        await("the list changes", () -> {
            changes[0] = unchecked(list::update);
            return !changes[0].isEmpty();
        });
        return changes[0];
    }

    @Test
    @Tag("memory")
    void twoDevicesOfOneSerialNumberAreNotTakenForEachOther() throws UsbException {
        bus.change("spare", "{\"serial\": \"BENCH00001\"}");
        bus.plug("spare");
        UsbDeviceList list = list();
        UsbDuplicateException both = assertThrows(UsbDuplicateException.class, () -> list.find(BENCH));
        assertEquals(List.of(BENCH, BENCH), serials(both.devices()));
    }

    @Test
    @Tag("memory")
    void aSeparatorInASerialNumberDoesNoHarm() throws UsbException {
        bus.change("spare", "{\"serial\": \"A:=x:=h:=0:=0:=end\"}");
        bus.plug("spare");
        UsbDevice spare = device("A:=x:=h:=0:=0:=end");
        assertTrue(spare.info().isAmbiguous());
        assertFalse(spare.info().isHid());
        assertArrayEquals(spare.info().serial().getBytes(), spare.descriptor(3, 3));
    }

    /** The spare tool, which the library could not open when it came. */
    private UsbDevice unreadableSpare(UsbDeviceList list) throws UsbException {
        bus.failNext("libusb_open", -3);
        bus.plug("spare");
        List<UsbDevice> came = untilChanged(list).came();
        assertEquals(1, came.size());
        assertTrue(came.get(0).info().isUnopenable(), () -> came.get(0).line());
        return came.get(0);
    }

    private static void updateUntil(UsbDeviceList list, String serial, boolean present) {
        await(serial + " gets presence " + present, () -> {
            unchecked(list::update);
            return list.find(serial).isPresent() == present;
        });
    }

    @Test
    @Tag("memory")
    void aDeviceThatCannotBeReadAtTheSecondTryEitherIsReadAtTheThird() throws UsbException {
        UsbDeviceList list = list();
        UsbDevice unreadable = unreadableSpare(list);
        bus.failNext("libusb_open", -3);
        UsbDeviceList.Changes changes = untilChanged(list);
        assertEquals(List.of("SPARE005"), serials(changes.came()));
        assertEquals(List.of(unreadable), changes.left());
    }

    /** A device is read again in a list with an id more, and a list has at most 16. The other list tells the time. */
    @Test
    @Tag("memory")
    void aDeviceOfSixteenVendorsIsNotReadAgain() throws UsbException {
        UsbDeviceList sixteen = session().list(IntStream.range(VENDOR, VENDOR + 16).toArray());
        UsbDevice unreadable = unreadableSpare(sixteen);
        UsbDeviceList other = session().list(0x1209);
        bus.unplug("stranger");
        updateUntil(other, "OTHER004", false);
        bus.failNext("libusb_open", -3);
        bus.plug("stranger");
        updateUntil(other, "OTHER004", true);
        sixteen.update();
        assertTrue(unreadable.isPresent());
        assertTrue(unreadable.info().isUnopenable(), unreadable::line);
    }

    @Test
    @Tag("memory")
    void aDeviceThatCouldNotBeReadOnceIsTriedAgain() throws UsbException {
        UsbDeviceList list = list();
        UsbDevice unreadable = unreadableSpare(list);
        UsbDeviceList.Changes changes = untilChanged(list);
        assertEquals(List.of("SPARE005"), serials(changes.came()));
        assertEquals(List.of(unreadable), changes.left());
        UsbDevice spare = changes.came().get(0);
        assertEquals(3, write(spare.open(), 0x01, pattern(3)));
        // The library now lists all of them anew, in the first list.
        bus.unplug("bench");
        updateUntil(list, BENCH, false);
        assertSame(spare, device("SPARE005"));
        assertEquals(3, read(spare, 0x81, new byte[64]));
        spare.close();
        assertEquals(1, write(spare.open(), 0x01, pattern(1)));
        assertFalse(unreadable.isPresent());
    }

    @Test
    @Tag("memory")
    void aDeviceThatIsReadAtASecondTryLeavesAndComesBackLikeAnyOther() throws UsbException {
        UsbDeviceList list = list();
        unreadableSpare(list);
        UsbDevice spare = untilChanged(list).came().get(0);
        bus.unplug("spare");
        updateUntil(list, "SPARE005", false);
        assertFalse(spare.isPresent());
        assertThrows(UsbDeviceGoneException.class, spare::open);
        bus.plug("spare");
        updateUntil(list, "SPARE005", true);
        assertSame(spare, device("SPARE005"));
        assertEquals(1, write(spare.open(), 0x01, pattern(1)));
    }

    @Test
    @Tag("memory")
    void aKnownDeviceThatCouldNotBeReadOnceIsTheSameAgain() throws UsbException {
        UsbDeviceList list = list();
        bus.plug("spare");
        UsbDevice spare = untilChanged(list).came().get(0);
        bus.unplug("spare");
        updateUntil(list, "SPARE005", false);
        unreadableSpare(list);
        updateUntil(list, "SPARE005", true);
        assertSame(spare, device("SPARE005"));
        assertEquals(1, write(spare.open(), 0x01, pattern(1)));
        spare.close();
        bus.unplug("bench");
        updateUntil(list, BENCH, false);
        assertSame(spare, device("SPARE005"));
        assertEquals(1, write(spare.open(), 0x01, pattern(1)));
    }

    @Test
    void everyTypeTellsWhatItIs() throws UsbException {
        UsbDeviceList list = list();
        UsbDevice bench = device(BENCH);
        assertEquals("BENCH00001", bench.toString());
        assertEquals("BENCH00001, open", bench.open().toString());
        assertEquals("listener to endpoint 0x81 of BENCH00001", bench.onData(0x81, 64, bytes -> { }).toString());
        bench.close();
        assertEquals("listener to changes", session().onChange(change -> { }).toString());
        assertEquals("LEFT BENCH00001", new UsbChange(UsbChange.Kind.LEFT, bench, list).toString());
        assertTrue(list.toString().contains("BENCH00001"), list::toString);
        assertEquals("6A5C:1001 BENCH00001 (Talvane, Bench Tool)", bench.info().toString());
        assertTrue(bench.endpoints().get(2).toString().startsWith("endpoint 0x02, interrupt out, "));
        assertEquals("session", session().toString());
        session().close();
        assertEquals("session, closed", session().toString());
    }
}
