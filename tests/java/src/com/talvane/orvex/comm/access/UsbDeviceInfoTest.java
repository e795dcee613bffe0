package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.access.UsbDeviceInfo.Family;
import com.talvane.orvex.comm.access.UsbDeviceInfo.Kind;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** Information lines, read without a bus. */
class UsbDeviceInfoTest {
    private static final String LINE = "1:=6A5C:=1001:=ABCD:=Talvane:=Echo Tool:=ECHO0001:=x:=b:=2:=17:=end";

    private static UsbDeviceInfo withTexts(String texts) {
        return UsbDeviceInfo.parse("1:=6A5C:=1001:=0100:=" + texts + ":=x:=b:=0:=0:=end");
    }

    @Test
    void allFieldsOfTheLineAreRead() {
        assertEquals(
                new UsbDeviceInfo(true, 0x6A5C, 0x1001, 0xABCD, "Talvane", "Echo Tool", "ECHO0001", Kind.PIPES,
                        Family.INTERFACE, 17),
                UsbDeviceInfo.parse(LINE));
        assertFalse(UsbDeviceInfo.parse("0" + LINE.substring(1)).present());
    }

    @ParameterizedTest
    @CsvSource({"h, HID, 0, WHOLE", "u, UNSUPPORTED, 1, COMPOSITE", "b, PIPES, 2, INTERFACE"})
    void lettersAndNumbersStandForKindAndFamily(String letter, Kind kind, int number, Family family) {
        UsbDeviceInfo info = UsbDeviceInfo.parse(LINE.replace(":=b:=2:=", ":=" + letter + ":=" + number + ":="));
        assertEquals(kind, info.kind());
        assertEquals(family, info.family());
        assertEquals(kind == Kind.HID, info.isHid());
    }

    @Test
    void aSerialNumberThatLooksLikeTheEndOfALineIsASerialNumber() {
        UsbDeviceInfo info = withTexts("Maker:=Tool:=S:=x:=h:=2:=9:=end");
        assertEquals("S:=x:=h:=2:=9:=end", info.serial());
        assertEquals(Kind.PIPES, info.kind());
        assertTrue(info.isAmbiguous());
    }

    @Test
    void aSeparatorTooManyIsAmbiguousAndGoesToTheSerialNumber() {
        UsbDeviceInfo info = withTexts("Ma:=ker:=Tool:=S1");
        assertEquals("Ma", info.manufacturer());
        assertEquals("ker", info.product());
        assertEquals("Tool:=S1", info.serial());
        assertTrue(info.isAmbiguous());
        assertFalse(UsbDeviceInfo.parse(LINE).isAmbiguous());
    }

    @Test
    void textsMayBeEmptyOrHaveLineBreaks() {
        assertEquals("", withTexts(":=:=").serial());
        assertEquals("a\nb\r", withTexts("a\nb\r:=P:=S").manufacturer());
        assertTrue(withTexts("<cannot_open>6A5C:1001:=P:=S").isUnopenable());
        assertFalse(withTexts("M:=P:=S").isUnopenable());
    }

    @Test
    void whatCouldForgeALineOrControlATerminalIsReplaced() {
        assertEquals("a?b?c?d?e?f?g?[31m",
                UsbDeviceInfo.printable("a\nb\u0085c\u2028d\u202Ee\u200Bf\uD800g\u001B[31m"));
        assertEquals("Tool® 5 µm ±1° € \uD83D\uDD27", UsbDeviceInfo.printable("Tool® 5 µm ±1° € \uD83D\uDD27"));
        UsbDeviceInfo info = withTexts("M\u202E:=P\n:=S\u2029");
        assertEquals("6A5C:1001 S? (M?, P?)", info.toString());
        assertEquals("S?", info.label(7));
    }

    @ParameterizedTest
    @ValueSource(strings = {
        "", "end", "2:=6A5C:=1001:=0100:=M:=P:=S:=x:=b:=0:=0:=end", "1:=6A5:=1001:=0100:=M:=P:=S:=x:=b:=0:=0:=end",
        "1:=6A5C:=1001:=0100:=M:=P:=x:=b:=0:=0:=end", "1:=6A5C:=1001:=0100:=M:=P:=S:=x:=q:=0:=0:=end",
        "1:=6A5C:=1001:=0100:=M:=P:=S:=x:=b:=3:=0:=end", "1:=6A5C:=1001:=0100:=M:=P:=S:=x:=b:=0:=9999999999:=end",
        "1:=6A5C:=1001:=0100:=M:=P:=S:=x:=b:=0:=0", "1:=6A5C:=1001:=0100:=M:=P:=S:=x:=b:=0:=0:=end\n"
    })
    void whatIsNotAWholeLineIsRefused(String line) {
        assertThrows(IllegalArgumentException.class, () -> UsbDeviceInfo.parse(line));
    }

    private static UsbDeviceInfo withTexts(String texts, int family, int number) {
        return UsbDeviceInfo.parse(
                "1:=6A5C:=1001:=0100:=" + texts + ":=x:=b:=" + family + ":=" + number + ":=end");
    }

    /** The numbers are those that the device descriptor has for the manufacturer, the product and the serial number. */
    @ParameterizedTest
    @CsvSource({
        "M:=P:=S, 0, 123, false", "?:=?:=?, 0, 000, false", "?:=P:=S, 0, 100, true", "?:=P:=S, 0, 023, false",
        "M:=?:=S, 0, 020, true", "M:=?:=S, 0, 103, false", "M:=P:=?, 0, 003, true", "M:=P:=?, 0, 120, false",
        "M:=P:=, 0, 003, false", "M:=?:=S_01, 2, 020, false", "M:=P:=?_01, 2, 003, true", "M:=P:=?_01, 0, 003, false",
        "M:=P:=?, 0, , false", "<cannot_open>6A5C:1001:=P:=S, 0, , true", "<cannot_open>6A5C:1001:=P:=S, 0, 000, true"
    })
    void aTextThatTheDeviceHasAndTheLineDoesNotCouldNotBeRead(String texts, int family, String numbers, boolean lacks) {
        byte[] descriptor = new byte[numbers == null ? 0 : 18];
        for (int i = 0; numbers != null && i < 3; i++) {
            descriptor[14 + i] = (byte) (numbers.charAt(i) - '0');
        }
        assertEquals(lacks, withTexts(texts, family, 0).lacksText(descriptor));
    }

    @Test
    void aDescriptorThatEndsBeforeTheSerialNumberTellsNothing() {
        assertFalse(withTexts("?:=?:=?").lacksText(new byte[16]));
    }

    @ParameterizedTest
    @CsvSource({
        "M:=P:=S, M:=P:=S, true", "?:=?:=?, M:=P:=S, true", "?:=P:=S, M:=P:=S, true", "M:=?:=S, M:=P:=S, true",
        "M:=P:=?, M:=P:=S, true", "M:=P:=S, N:=P:=S, false", "M:=P:=S, M:=Q:=S, false", "M:=P:=S, M:=P:=T, false",
        "M:=P:=S, ?:=P:=S, false", "<cannot_open>:=<cannot_open>:=?, M:=P:=S, true"
    })
    void anyTextMayBeTheOneThatCouldNotBeRead(String texts, String other, boolean may) {
        assertEquals(may, withTexts(texts).mayBe(withTexts(other)));
    }

    @ParameterizedTest
    @CsvSource({"6A5C:=1001:=0101", "6A5C:=1002:=0100", "6A5D:=1001:=0100"})
    void devicesOfOtherIdsAreOthers(String ids) {
        UsbDeviceInfo unopenable = withTexts("<cannot_open>:=<cannot_open>:=?");
        assertFalse(unopenable.mayBe(UsbDeviceInfo.parse("1:=" + ids + ":=M:=P:=S:=x:=b:=0:=0:=end")));
    }

    @Test
    void onlyADeviceThatCouldNotBeOpenedMayBeOfAnotherFamily() {
        UsbDeviceInfo part = withTexts("M:=P:=S_01", 2, 1);
        assertTrue(withTexts("<cannot_open>:=<cannot_open>:=?").mayBe(part));
        assertTrue(withTexts("?:=P:=S_01", 2, 1).mayBe(part));
        assertFalse(withTexts("?:=P:=S_01", 0, 1).mayBe(part));
        assertFalse(withTexts("?:=P:=S_01", 2, 2).mayBe(part));
    }

    @Test
    void anInterfaceBelongsToTheCompositeDeviceOfItsSerialNumber() {
        UsbDeviceInfo composite = withTexts("M:=P:=S", 1, 0);
        assertTrue(withTexts("M:=Q:=S_01", 2, 1).isInterfaceOf(composite));
        assertFalse(withTexts("M:=Q:=T_01", 2, 1).isInterfaceOf(composite));
        assertFalse(withTexts("M:=Q:=S_01", 0, 1).isInterfaceOf(composite));
        assertFalse(withTexts("M:=Q:=S_01", 2, 1).isInterfaceOf(withTexts("M:=P:=S", 0, 0)));
        assertFalse(UsbDeviceInfo.parse(LINE).isInterfaceOf(composite));
        assertFalse(UsbDeviceInfo.parse("1:=6A5D:=1001:=0100:=M:=Q:=S_01:=x:=b:=2:=1:=end").isInterfaceOf(composite));
        assertFalse(UsbDeviceInfo.parse("1:=6A5C:=1002:=0100:=M:=Q:=S_01:=x:=b:=2:=1:=end").isInterfaceOf(composite));
    }

    @Test
    void aDeviceWithoutASerialNumberIsNamedByItsPlace() {
        assertEquals("S", withTexts("M:=P:=S").label(3));
        assertEquals("device 3", withTexts("M:=P:=?").label(3));
        assertEquals("device 3", withTexts("M:=P:=").label(3));
        assertEquals("device 3", withTexts("M:=P:=?_01", 2, 1).label(3));
        assertEquals("?_01", withTexts("M:=P:=?_01").label(3));
    }

    @Test
    void anAbsentDeviceIsNamedAsOne() {
        assertEquals("6A5C:1001 ECHO0001 (Talvane, Echo Tool)", UsbDeviceInfo.parse(LINE).toString());
        assertEquals("6A5C:1001 ECHO0001 (Talvane, Echo Tool), absent",
                UsbDeviceInfo.parse("0" + LINE.substring(1)).toString());
    }
}
