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
                        "Type 0x21: 04 21 11 01",
                        "SuperSpeed endpoint companion: 02 30"),
                lines.subList(15, 22));
        assertEquals(22, lines.size());
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
