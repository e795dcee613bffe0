package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.google.gson.JsonElement;
import com.google.gson.JsonObject;
import com.google.gson.JsonParser;
import com.talvane.orvex.comm.tool.ToolRun;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** The commands of the tool, as a user types them, on the devices of the scenario. */
class ToolTest extends ToolFixture {
    @TempDir
    private Path folder;

    @Test
    void listShowsATableOfBothVendors() {
        String table = good("list").out();
        assertTrue(table.startsWith("INDEX  ID         RELEASE  TYPE  PART"), table);
        assertTrue(
                table.contains("6A5C:1001  0100     bulk  whole        BENCH00001   Talvane       Bench Tool"), table);
        assertTrue(table.contains("composite    COMP0003 "), table);
        assertTrue(table.contains("interface 1  COMP0003_01"), table);
        assertFalse(table.contains("OTHER004"), table);
    }

    @Test
    @Tag("memory")
    void listTellsWhyADeviceMayNotHaveBeenOpened() {
        bus.failNext("libusb_open", -3);
        ToolRun run = good("list");
        assertTrue(run.out().contains("<cannot_open>6A5"), run.out());
        assertTrue(run.err().contains("TAG+=\"uaccess\""), run.err());
    }

    @Test
    void listShowsTheDevicesOfChosenVendors() {
        assertEquals(
                "1:=1209:=0001:=0100:=Somebody:=Other Thing:=OTHER004:=x:=b:=0:=0:=end\n",
                good("list --raw -V 0x1209").out());
        assertEquals(3, good("list --raw -V 0x1209 -V 6a5c").out().lines().count());
    }

    @Test
    void listIsShownAsJson() {
        String json = good("list --json").out();
        List<JsonObject> devices = JsonParser.parseString(json).getAsJsonArray().asList().stream()
                .map(JsonElement::getAsJsonObject)
                .toList();
        assertEquals(4, devices.size(), json);
        JsonObject port = devices.stream().filter(d -> d.get("serial").getAsString().equals("COMP0003_01"))
                .findFirst().orElseThrow(() -> new AssertionError(json));
        JsonObject expected = JsonParser.parseString("{'present': true, 'vendorId': 27229, 'productId': 8193,"
                + "'release': 256, 'manufacturer': 'Talvane', 'product': 'Data Port', 'serial': 'COMP0003_01',"
                + "'kind': 'pipes', 'family': 'interface', 'interfaceNumber': 1}").getAsJsonObject();
        expected.add("index", port.get("index"));
        assertEquals(expected, port);
        assertEquals("[]\n", good("list --json -V 0xFFF0").out());
    }

    @ParameterizedTest
    @ValueSource(strings = {"--serial BENCH00001", "--serial PAIR0002 --size 1000", "--index 0 --text Hello"})
    void echoComesBackEqual(String choice) {
        String out = good("echo " + choice).out();
        assertTrue(out.endsWith("The echo is equal.\n"), out);
        assertTrue(out.matches("(?s)Opened .*\nOUT 0x01  \\d+ bytes in \\d+\\.\\d{3} ms\n.*IN  0x81  .*"), out);
    }

    @Test
    void echoShowsBothDumps() {
        String out = good("echo --serial BENCH00001 --text Hello").out();
        assertEquals(2, out.split("48 65 6C 6C 6F {35}\\|Hello\\|", -1).length - 1, out);
    }

    @Test
    void anEchoThatDiffersFails() {
        ToolRun run = run("echo --serial BENCH00001 --out 3 --in 0x83 --text zzz");
        assertEquals(1, run.status());
        assertTrue(run.out().endsWith("The echo differs.\n"), run.out());
    }

    @Test
    void anEchoThatTheDeviceDoesNotTakeWholeFails() {
        ToolRun run = run("echo --serial BENCH00001 --out 5");
        assertEquals(1, run.status());
        assertTrue(run.err().contains("accepted only 0 of 64 bytes"), run.err());
        assertFalse(run.out().contains("equal"), run.out());
    }

    @Test
    void writeSendsHexAndReadShowsIt() {
        good("write --serial BENCH00001 --data 01:A2:ff");
        assertArrayEquals(new byte[] {1, (byte) 0xA2, (byte) 0xFF}, bus.received("bench", 0x01).get(0));
        bus.feed("bench", 0x82, pattern(3));
        assertEquals(
                "  00000000  01 02 03                                         |...|\n",
                good("read --serial BENCH00001 --in 0x82 --interrupt").out());
    }

    @Test
    void filesAndStandardStreamsCarryRawBytes() throws Exception {
        Path file = folder.resolve("data");
        Files.write(file, pattern(300));
        good("write --serial BENCH00001 --out 6 --interrupt -i " + file);
        assertArrayEquals(pattern(300), bus.received("bench", 0x06).get(0));
        assertEquals(0, ToolRun.of(pattern(20), "write", "--serial", "BENCH00001", "--out", "3", "-i", "-").status());
        assertArrayEquals(pattern(20), bus.received("bench", 0x03).get(0));

        bus.feed("bench", 0x81, pattern(50));
        good("read --serial BENCH00001 --output " + file);
        assertArrayEquals(pattern(50), Files.readAllBytes(file));
        bus.feed("bench", 0x81, pattern(50));
        assertArrayEquals(pattern(50), good("read --serial BENCH00001 -o -").bytes());
    }

    @Test
    void failuresAreToldWithTheirCode() {
        assertFails(
                "read --serial BENCH00001 --in 0x84 --timeout 50",
                "read from endpoint 0x84 of BENCH00001: no data within 50 ms (-150");
        assertFails("read --serial BENCH00001 --in 0x8F", "-113: the read could not be started");
        assertFails("echo --serial NOBODY", "no device with serial number NOBODY");
        assertFails("echo --index 99", "no device with index 99");
        assertFails("write --serial BENCH00001 -i /nowhere/at/all", "/nowhere/at/all");
    }

    @Test
    void aDeviceThatIsNotSupportedIsTold() {
        bus.plug("modem");
        openSession();
        usb.usbRelease(0);
        assertFails("echo --serial MODEM006", "open MODEM006: -158: ");
    }

    @Test
    void aWriteThatIsCutShortFails() {
        ToolRun run = run("write --serial BENCH00001 --out 5 --data 0102");
        assertEquals(1, run.status());
        assertTrue(run.err().contains("accepted only 0 of 2 bytes"), run.err());
    }

    @Test
    void aTransferThatIsCutShortFailsWithJsonToo() {
        ToolRun write = run("write --json --serial BENCH00001 --out 5 --data 0102");
        assertEquals(1, write.status(), write.out());
        ToolRun file = run("write --json --serial BENCH00001 --out 5 --file " + anyFile());
        assertEquals(1, file.status(), file.out());
    }

    private Path anyFile() {
        try {
            return Files.write(folder.resolve("any"), new byte[10]);
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    @Test
    @Tag("memory")
    void aRequestCannotHaveMoreDataThanItsLengthTells() {
        ToolRun run = run("control --index 0 --request-type 0x40 --request 1 --data " + "00".repeat(65536));
        assertEquals(2, run.status());
        assertTrue(run.err().startsWith("A request can have at most 65535 bytes of data\n"), run.err());
    }

    @Test
    void anIdIsHexadecimalWithAndWithoutItsPrefix() {
        String stranger = good("list --raw -V 0x1209").out();
        assertEquals(1, stranger.lines().count());
        for (String id : new String[] {"1209", "0X1209"}) {
            assertEquals(stranger, good("list --raw -V " + id).out());
        }
        assertEquals("", good("list --raw -V 08e6").out());
        assertEquals(3, good("list --raw -V 1209,6A5c").out().lines().count());
    }

    @Test
    void aDeviceCanBeChosenByItsIds() {
        String pair = good("describe --serial PAIR0002").out();
        for (String choice : new String[] {"--device 6A5C:1002", "-d 0x6a5c:0x1002", "--device=6a5c:1002"}) {
            assertEquals(pair, good("describe " + choice).out());
        }
        assertTrue(good("describe -d 1209:1").out().contains("OTHER004"));
        assertFails("describe -d 6A5C:9999", "no device with the ids 6A5C:9999");
        assertFails("describe -d 6A5D:2001", "2 devices have the ids 6A5D:2001");
    }

    @Test
    void listTellsWhoseDevicesItLookedFor() {
        bus.unplug("bench");
        bus.unplug("pair");
        bus.unplug("composite");
        assertEquals("No devices of the vendors 6A5C, 6A5D were found; list --all shows those of every vendor.\n",
                good("list").out());
        assertEquals("No devices of the vendor FFF0 were found; list --all shows those of every vendor.\n",
                good("list -V FFF0").out());
        assertFails("describe --serial NOBODY", "no device with serial number NOBODY of the vendors 6A5C, 6A5D"
                + " (orvex-usb list --all shows those of every vendor)");
    }

    @Test
    void listShowsTheDevicesOfEveryVendor() {
        String all = good("list --all").out();
        assertTrue(all.contains("BENCH00001") && all.contains("COMP0003_01") && all.contains("OTHER004"), all);
        assertTrue(good("describe --all --serial OTHER004").out().contains("Other Thing"));
        assertWrongUse("list --all -V 6A5C");
    }

    @Test
    void sixteenVendorsCanBeChosen() {
        String sixteen = "list --raw -V 1,2,3,4,5,6,7,8,9,10,11,12,13,14,15 -V ";
        assertEquals(1, good(sixteen + "0x1209").out().lines().count());
        for (String line : new String[] {sixteen + "16,0x1209", sixteen.replace("list --raw", "watch") + "16 -V 17",
            sixteen.replace("list --raw", "echo --index 0") + "16,17"}) {
            assertWrongUse(line);
        }
    }

    @ParameterizedTest
    @Tag("memory")
    @ValueSource(strings = {
        "", "xyzzy", "echo", "echo --serial a --index 1", "echo --index -1", "echo --index 0 --size 0",
        "echo --index 0 --size 1 --text a", "list -V 0x10000", "list -V x", "list -V #1F", "list -V 0x", "list -V 0x+5",
        "list -V +5", "list -V 0x100000000", "list -V", "list -V 12345", "list -V 6A5C:1001", "describe -d 6A5C", "describe -d 6A5C:",
        "describe -d 6A5C:10012", "describe -d 6A5C:1001 --index 0", "write --index 0", "list extra", "watch extra",
        "watch --count -1", "watch --count 99999999999", "watch --seconds x", "describe", "describe --index 0 --timeout 5", "control",
        "control --index 0 --request 1", "control --index 0 --request-type 0xC0",
        "control --index 0 --request-type 0x100 --request 1",
        "control --index 0 --request-type 0xC0 --request 1 --length 65536",
        "control --index 0 --request-type 0xC0 --request 1 --data 01",
        "control --index 0 --request-type 0x40 --request 1 --length 1",
        "control --index 0 --request-type 0x40 --request 1 --length 1 --data 01",
        "control --index 0 --request-type 0x40 --request 1 --value 0x10000",
        "list --raw --json", "write --index 0 --data 123", "write --index 0 --data 01 --input -",
        "read --index 0 --in 256"
    })
    void wrongUseIsTold(String line) {
        assertWrongUse(line);
    }

    @Test
    void describeShowsTextsDescriptorsAndEndpoints() {
        String out = good("describe --serial PAIR0002").out();
        assertTrue(
                out.matches("(?s)Manufacturer   Talvane\nProduct        Pair Tool\nSerial number  PAIR0002\n"
                        + "(Port           [-.0-9]+\n)?\n.*"), out);
        assertTrue(out.contains("\nDevice: 12 01 "), out);
        assertTrue(out.contains("\n  idProduct            0x1002\n"), out);
        assertTrue(out.contains("\nConfiguration: 09 02 20 00 01 01 "), out);
        assertTrue(out.contains("\nInterface: 09 04 00 00 02 FF 00 00 00\n"), out);
        assertTrue(out.contains("\n  bInterfaceClass      0xFF  vendor\n"), out);
        assertTrue(out.contains("\nEndpoint: 07 05 81 02 40 00 00\n  bEndpointAddress     0x81  IN\n"), out);
        assertTrue(
                out.endsWith("\nENDPOINT  DIRECTION  TYPE  PACKET\n0x81      IN         bulk  64\n"
                        + "0x01      OUT        bulk  64\n"), out);
    }

    @Test
    void describeShowsTheInterfaceOfACompositeDeviceAsItsOwn() {
        String out = good("describe --serial COMP0003_01").out();
        assertTrue(out.contains("\n\nInterface: 09 04 01 00 03 FF FF 00 "), out);
        assertFalse(out.contains("Configuration: "), out);
        assertTrue(out.contains("\n0x83      IN         interrupt  64\n"), out);
    }

    @Test
    void describeShowsEveryAlternateSetting() {
        bus.plug("settings");
        openSession();
        usb.usbRelease(0);
        String out = good("describe --serial SETT0018").out();
        assertTrue(out.contains("\nInterface: 09 04 00 00 02 FF 00 00 00\n"), out);
        assertTrue(out.contains("\nInterface: 09 04 00 01 03 FF 00 00 00\n"), out);
        assertTrue(out.contains("\nType 0x42: 05 42 01 02 03\n"), out);
    }

    @Test
    @Tag("memory")
    void describeTellsWhatCouldNotBeRead() {
        bus.plug("locked");
        String out = good("describe --serial ?").out();
        assertTrue(out.contains("The device descriptor could not be read.\n"), out);
        assertTrue(out.contains("The configuration descriptor could not be read.\n"), out);
        assertFails("describe --index 77", "no device with index 77");
    }

    @Test
    void controlSendsAndGetsData() {
        good("control --serial BENCH00001 --request-type 0x40 --request 1 --data 0A:0B:0C");
        ToolRun got = good("control --serial BENCH00001 --request-type 0xC0 --request 1 --length 64");
        assertEquals("  00000000  0A 0B 0C                                         |...|\n", got.out());
        assertTrue(got.err().contains("Read 3 bytes in "), got.err());
        assertEquals(
                "  00000000  A1 B2 C3                                         |...|\n",
                good("control --serial BENCH00001 --request-type 192 --request 2 --value 0x1234 --index-word 0x56"
                        + " --length 3").out());
    }

    @Test
    void controlTellsAsJsonWhatWasMoved() {
        String request = "control --json --serial BENCH00001 --request 1 ";
        JsonObject sent = object(good(request + "--request-type 0x40 --data 0A:0B:0C").out());
        assertEquals("out", sent.get("direction").getAsString());
        assertEquals(3, sent.get("bytes").getAsInt());
        JsonObject got = object(good(request + "--request-type 0xC0 --length 64").out());
        assertEquals("in", got.get("direction").getAsString());
        assertEquals("0A0B0C", got.get("data").getAsString());
    }

    private static JsonObject object(String json) {
        return JsonParser.parseString(json).getAsJsonObject();
    }

    @Test
    @Tag("memory")
    void severalDevicesThatFitHaveToBeToldApart() {
        bus.change("spare", "{\"serial\": \"BENCH00001\"}");
        bus.plug("spare");
        assertFails("describe -d 6A5C:1001", "choose one with --serial or --index");
        assertFails("describe --serial BENCH00001", "choose one with --index");
    }

    @Test
    void watchShowsWhatIsThereAndEndsInTime() {
        String out = good("watch --seconds 0").out();
        assertEquals(5, out.lines().count());
        assertTrue(
                out.lines().anyMatch(l -> l.matches("\\S+  present +\\d  6A5C:1002  PAIR0002 +Pair Tool")), out);
        assertTrue(out.endsWith("\nWatching; Ctrl-C ends it.\n"), out);
        assertEquals("Watching; Ctrl-C ends it.\n", good("watch -V 0xFFF0 --seconds 0").out());
        assertEquals(5, good("watch --count 0").out().lines().count());
        good("watch --count 0 --seconds 0");
    }

    @Test
    void watchFailsWhenItsTimeEndsBeforeItsCount() {
        assertFails("watch --count 2 --seconds 0", "only 0 of 2 changes within 0 s");
    }

    @Test
    void aValueThatBeginsWithAnAtIsNoFile() throws Exception {
        Path file = Files.writeString(folder.resolve("words"), "BENCH00001");
        assertFails("echo --serial @" + file, "no device with serial number @" + file);
        assertEquals(2, run("@" + Files.writeString(folder.resolve("line"), "codes")).status());
    }

    @Test
    void codesAreListed() {
        String out = good("codes").out();
        assertTrue(out.contains("-150  library  the transfer timed out\n"), out);
        assertEquals(UsbAccessCode.values().length + 1, out.lines().count());
    }

    @Test
    void versionAndHelpAreTold() {
        assertEquals("orvex-usb, library version 3.47\n", good("--version").out());
        String help = good("--help").out();
        for (String part : new String[] {"list", "watch", "describe", "echo", "read", "write", "hid", "control",
            "bench", "reset", "doctor", "codes", "Exit status:", "--simulate"}) {
            assertTrue(help.contains(part), help);
        }
        assertTrue(good("echo --help").out().contains("--serial"));
    }
}
