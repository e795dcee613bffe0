package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

class InformationLineTest extends UsbTest {
    /** Lists a device that has to be plugged in first. */
    private Device plugged(String id, String serial) {
        bus.plug(id);
        return find(sessionWithList(), serial);
    }

    /** Plugs in a device that shows no serial number, and waits for it by its product id. */
    private Device pluggedSilently(String id, String productId) {
        int list = sessionWithList();
        bus.plug(id);
        updateUntil(id + " is listed", list, () -> lines(list).stream().anyMatch(l -> l.contains(":=" + productId)));
        return devices(list).stream().filter(d -> d.field(3).equals(productId)).findFirst().orElseThrow();
    }

    @Test
    void tellsTwelveFields() {
        assertEquals(
                "1:=6A5C:=1001:=0100:=Talvane:=Bench Tool:=BENCH00001:=x:=b:=0:=0:=end",
                find(sessionWithList(), "BENCH00001").line());
    }

    @ParameterizedTest(name = "{0} is of type {2}")
    @CsvSource({"modem, MODEM006, u", "disk, DISK0007, u", "loader, LOAD0008, b"})
    void theTypeLetterFollowsTheClass(String id, String serial, String letter) {
        assertEquals(letter, plugged(id, serial).field(9));
    }

    @Test
    void theReleaseIsFourUpperCaseDigits() {
        assertEquals("ABCD", plugged("loader", "LOAD0008").field(4));
        assertEquals("0100", find(list(VENDOR), "BENCH00001").field(4));
    }

    @Test
    void anEmptyTextIsNothingAndAWideCharacterIsAQuestionMark() {
        assertEquals(
                "1:=6A5C:=1006:=0100:=:=Price 5? :-):=WORDS009:=x:=b:=0:=0:=end",
                plugged("words", "WORDS009").line());
    }

    @Test
    void charactersUpTo0xFFArriveAndTheLineIsWhole() {
        assertEquals(
                "1:=6A5C:=100D:=0100:=Café:=Tool® 5 µm ±1°:=LATIN017:=x:=b:=0:=0:=end",
                plugged("latin", "LATIN017").line());
    }

    @Test
    void aTextHasAtMost125Characters() {
        Device device = plugged("long", "LONG0010");
        assertEquals("M" + "2345678901".repeat(12) + "2345", device.field(5));
        assertEquals("P" + "2345678901".repeat(12) + "2345", device.field(6));
    }

    @Test
    void missingTextsAreQuestionMarks() {
        assertEquals(
                "1:=6A5C:=1008:=0100:=?:=?:=?:=x:=b:=0:=0:=end", pluggedSilently("nameless", "1008").line());
    }

    @Test
    void textsThatCannotBeReadAreQuestionMarks() {
        assertEquals("1:=6A5C:=1009:=0100:=?:=?:=?:=x:=b:=0:=0:=end", pluggedSilently("mute", "1009").line());
    }

    @Test
    void aDeviceThatIsGoneHasPresenceZero() {
        Device bench = find(sessionWithList(), "BENCH00001");
        bus.unplug("bench");
        updateUntilPresent(bench, false);
        assertEquals("0:=6A5C:=1001:=0100:=Talvane:=Bench Tool:=BENCH00001:=x:=b:=0:=0:=end", bench.line());
    }

    @Test
    void nothingIsToldOfADeviceThatIsNotThere() {
        assertEquals("", usb.usbGetDeviceInfo(1_000_000, 0));
        int list = sessionWithList();
        assertEquals("", usb.usbGetDeviceInfo(list, usb.usbGetDeviceListCount(list)));
        assertEquals("", usb.usbGetDeviceInfo(list, -1));
        usb.usbReleaseDeviceList(list);
        assertEquals("", usb.usbGetDeviceInfo(list, 0));
    }

    @Test
    void theChangeLineIsAlwaysEmptyAndChangesNothing() {
        Device bench = find(sessionWithList(), "BENCH00001");
        assertEquals("", usb.usbGetChangeInfo(bench.list(), bench.index()));
        bus.unplug("bench");
        updateUntilPresent(bench, false);
        String line = bench.line();
        assertEquals("", usb.usbGetChangeInfo(bench.list(), bench.index()));
        assertEquals("", usb.usbGetChangeInfo(bench.list(), 1000));
        assertEquals("", usb.usbGetChangeInfo(1_000_000, 0));
        assertEquals(line, bench.line());
    }
}
