package com.talvane.orvex.comm.tool;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.HexFormat;
import java.util.List;
import java.util.Random;
import org.junit.jupiter.api.Test;

class DescriptorsTest {
    private static List<String> describe(String hex) {
        return Descriptors.describe(HexFormat.of().parseHex(hex.replace(" ", "")));
    }

    @Test
    void theDeviceIsToldByFieldsWithTheirMeaning() {
        List<String> lines = describe("12 01 10 02 EF 02 01 40 5C 6A 01 10 34 12 01 02 03 01");
        assertEquals("Device: 12 01 10 02 EF 02 01 40 5C 6A 01 10 34 12 01 02 03 01", lines.get(0));
        assertEquals("  bcdUSB               0x0210  2.10", lines.get(1));
        assertEquals("  bDeviceClass         0xEF  miscellaneous", lines.get(2));
        assertEquals("  idVendor             0x6A5C", lines.get(6));
        assertEquals("  bcdDevice            0x1234  12.34", lines.get(8));
        assertEquals("  bNumConfigurations   1", lines.get(12));
        assertEquals(13, lines.size());
    }

    @Test
    void aConfigurationIsFollowedByWhatBelongsToIt() {
        List<String> lines = describe("09 02 20 01 01 01 00 E0 32  09 04 00 00 01 03 00 00 05  07 05 83 03 00 02 0A"
                + " 04 21 11 01  02 30");
        assertEquals(
                List.of(
                        "Configuration: 09 02 20 01 01 01 00 E0 32",
                        "  wTotalLength         288",
                        "  bNumInterfaces       1",
                        "  bConfigurationValue  1",
                        "  iConfiguration       0",
                        "  bmAttributes         0xE0  self powered, can wake the host",
                        "  bMaxPower            50  100 mA"),
                lines.subList(0, 7));
        assertTrue(lines.contains("  bInterfaceClass      0x03  HID"), lines::toString);
        assertEquals(
                List.of(
                        "Endpoint: 07 05 83 03 00 02 0A",
                        "  bEndpointAddress     0x83  IN",
                        "  bmAttributes         0x03  interrupt",
                        "  wMaxPacketSize       512",
                        "  bInterval            10",
                        "HID: 04 21 11 01",
                        "  bcdHID               0x0111  1.11",
                        "SuperSpeed endpoint companion: 02 30"),
                lines.subList(15, 23));
        assertEquals(23, lines.size());
    }

    private static String ofInterface(String interfaceClass, String descriptor) {
        List<String> lines = describe("09 04 00 00 00 " + interfaceClass + " 00 00 " + descriptor);
        return String.join("; ", lines.subList(8, lines.size())).replaceAll(" +", " ");
    }

    @Test
    void functionalDescriptorsAreNamedByTheClassOfTheirInterface() {
        assertEquals("HID: 09 21 11 01 00 01 22 1D 00; bcdHID 0x0111 1.11; bCountryCode 0; bNumDescriptors 1;"
                + " bDescriptorType 0x22; wDescriptorLength 29", ofInterface("03 00", "09 21 11 01 00 01 22 1D 00"));
        assertEquals("DFU functional: 09 21 0D E8 03 00 08 10 01; bmAttributes 0x0D; wDetachTimeOut 1000 ms;"
                + " wTransferSize 2048; bcdDFUVersion 0x0110 1.10", ofInterface("FE 01", "09 21 0D E8 03 00 08 10 01"));
        assertEquals("CCID: 06 21 10 01 00 07; bcdCCID 0x0110 1.10; bMaxSlotIndex 0; bVoltageSupport 0x07",
                ofInterface("0B 00", "06 21 10 01 00 07"));
        assertEquals("CDC header: 05 24 00 10 01; bDescriptorSubtype 0x00; bcdCDC 0x0110 1.10;"
                + " CDC union: 05 24 06 00 01; bDescriptorSubtype 0x06; bControlInterface 0; bSubordinateInterface0 1",
                ofInterface("02 02", "05 24 00 10 01 05 24 06 00 01"));
        assertEquals("CDC: 03 24 77; bDescriptorSubtype 0x77", ofInterface("0A 00", "03 24 77"));
        assertEquals("Type 0x21: 03 21 01", ofInterface("FF 00", "03 21 01"));
        assertEquals("Type 0x21: 03 21 01", ofInterface("FE 02", "03 21 01"));
        assertEquals("Type 0x24: 03 24 01", ofInterface("01 01", "03 24 01"));
    }

    @Test
    void aDescriptorThatIsCutIsShownAsFarAsItGoes() {
        assertEquals(
                List.of(
                        "Endpoint, cut after 5 of 7 bytes: 07 05 81 02 40",
                        "  bEndpointAddress     0x81  IN",
                        "  bmAttributes         0x02  bulk"),
                describe("07 05 81 02 40"));
        assertEquals(List.of("Type 0x00, cut after 1 of 9 bytes: 09"), describe("09"));
    }

    @Test
    void aLengthThatLeadsNowhereEndsTheWalk() {
        assertEquals(List.of(), describe(""));
        assertEquals(
                List.of("Not a descriptor: length 0",
                        "  00000000  00 05 81                                         |...|"),
                describe("00 05 81"));
        assertEquals("Not a descriptor: length 1", describe("02 0B 01 05").get(1));
    }

    @Test
    void anyBytesCanBeShown() {
        Random random = new Random(1);
        for (int i = 0; i < 5000; i++) {
            byte[] bytes = new byte[random.nextInt(64)];
            random.nextBytes(bytes);
            for (int at = 0; at < bytes.length; at += 1 + random.nextInt(8)) {
                bytes[at] = (byte) random.nextInt(6);
            }
            assertEquals(bytes.length == 0, Descriptors.describe(bytes).isEmpty());
        }
    }
}
