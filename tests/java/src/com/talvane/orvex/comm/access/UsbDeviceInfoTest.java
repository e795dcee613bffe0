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
}
