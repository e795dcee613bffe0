package com.talvane.orvex.comm.tool;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.talvane.orvex.comm.access.UsbDeviceInfo;
import java.nio.charset.StandardCharsets;
import java.util.List;
import org.junit.jupiter.api.Test;

class TextTest {
    @Test
    void aHexDumpHasSixteenBytesALine() {
        assertEquals(
                List.of(
                        "  00000000  41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 00 FF  |ABCDEFGHIJKLMN..|",
                        "  00000010  20 7F                                            | .|"),
                Text.hexDump("ABCDEFGHIJKLMN\0\u00FF \u007F".getBytes(StandardCharsets.ISO_8859_1)));
        assertEquals(List.of(), Text.hexDump(new byte[0]));
    }

    @Test
    void tableColumnsAreAsWideAsTheirWidestText() {
        assertEquals(
                List.of("A    B", "abc  d", "e    fgh"),
                Text.table(List.of(List.of("A", "B"), List.of("abc", "d"), List.of("e", "fgh"))));
    }

    @Test
    void controlCharactersDoNotReachTheTerminal() {
        assertEquals("a?[31mb?€", Text.printable("a\u001B[31mb\u009B€"));
    }

    @Test
    void whatEndsALineDoesNotEndOne() {
        assertEquals("a??b?c?d\u001B", Text.oneLine("a\r\nb\u0085c\u2028d\u001B"));
    }

    @Test
    void anInformationLineIsRead() {
        assertEquals(
                new DeviceInfo(3, new UsbDeviceInfo(true, 0x6A5C, 0x1001, 0xABCD, "M", "P", "S:=x",
                        UsbDeviceInfo.Kind.HID, UsbDeviceInfo.Family.INTERFACE, 11)),
                DeviceInfo.parse(3, "1:=6A5C:=1001:=ABCD:=M:=P:=S:=x:=x:=h:=2:=11:=end"));
    }

    @Test
    void anInformationLineThatIsCutIsRefused() {
        assertThrows(IllegalArgumentException.class, () -> DeviceInfo.parse(0, "1:=6A5C:=1001:=ABCD:=M:=P"));
        assertThrows(IllegalArgumentException.class, () -> DeviceInfo.parse(0, ""));
    }
}
