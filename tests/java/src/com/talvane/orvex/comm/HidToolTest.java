package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.tool.ToolRun;
import java.util.Arrays;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** The tool on HID devices. */
class HidToolTest extends HidTest {
    /** The tool has the session to itself once the HID driver has the device. */
    private void plugForTheTool() {
        Device hid = openHid();
        assertEquals(0, hid.close());
        usb.usbRelease(0);
    }

    private static ToolRun run(int status, String line) {
        ToolRun run = ToolRun.of(pattern(100), line.split(" "));
        assertEquals(status, run.status(), run.err());
        return run;
    }

    @Test
    void theTableAndTheRawLineShowTheType() {
        plugForTheTool();
        String table = run(0, "list").out();
        assertTrue(table.contains("6A5C:1020  0100     HID   whole        HIDT0021     Talvane       HID Tool"), table);
        String raw = run(0, "list --raw").out();
        assertTrue(raw.contains(":=HID Tool:=HIDT0021:=x:=h:=0:=0:=end\n"), raw);
    }

    @Test
    void hidSendsAndReadsReports() {
        plugForTheTool();
        ToolRun run = run(0, "hid --serial HIDT0021 --data 48656C6C6F --read 8");
        assertEquals("  00000000  48 65 6C 6C 6F 5A 5A 5A                          |HelloZZZ|\n", run.out());
        assertTrue(run.err().matches("Wrote 5 bytes in \\S+ ms\nRead 8 bytes in \\S+ ms\n"), run.err());
        assertEquals(-116, usb.usbRelease(0), "the session was left open");
    }

    @Test
    void whatWasMovedIsWrittenAsJson() {
        plugForTheTool();
        String out = run(0, "hid --json --serial HIDT0021 --data 48 --read 2").out();
        assertTrue(out.startsWith("{\"out\": {\"direction\": \"out\", \"bytes\": 1, "), out);
        assertTrue(out.endsWith(", \"data\": \"485A\"}}\n"), out);
        assertTrue(run(2, "hid --json --serial HIDT0021 --read 2 -o -").err()
                .contains("both write to standard output"));
    }

    @Test
    void sizeAndFillingOfReportsCanBeChosen() {
        change(512, "");
        plugForTheTool();
        ToolRun run = run(0, "hid --serial HIDT0021 -i - --read 512 -o - --packet-size 512 --fill 0xEE");
        assertArrayEquals(filled(pattern(100), 512, 0xEE), run.bytes());
        assertEquals(512, bus.received(ID, OUT).get(0).length);
        run(0, "hid --serial HIDT0021 --data 01 --packet-size 512");
        assertArrayEquals(filled(new byte[] {1}, 512, 0x5A), bus.received(ID, OUT).get(1));
    }

    @Test
    void bytesCanBeSentAlone() {
        plugForTheTool();
        assertEquals("", run(0, "hid --serial HIDT0021 -i -").out());
        assertEquals(2, bus.received(ID, OUT).size());
        assertArrayEquals(
                filled(Arrays.copyOfRange(pattern(100), 64, 100), REPORT, 0x5A), bus.received(ID, OUT).get(1));
    }

    @Test
    void reportsCanBeReadAlone() throws Exception {
        plugForTheTool();
        Future<Integer> tool = onAnotherThread(() -> {
            ToolRun run = run(0, "hid --serial HIDT0021 --read 3 --timeout " + Device.AMPLE);
            assertEquals("  00000000  01 02 03                                         |...|\n", run.out());
            return run.status();
        });
        // Reports that arrive before the tool has opened the device are dropped.
        await("the tool has what it reads", () -> {
            bus.feed(ID, IN, pattern(REPORT));
            return tool.isDone();
        });
        assertEquals(0, result(tool));
    }

    @Test
    void failuresAreTold() {
        plugForTheTool();
        assertEquals("orvex-usb: BENCH00001 is not a HID device (orvex-usb list shows the types)\n",
                run(1, "hid --serial BENCH00001 --read 1").err());
        String silent = run(1, "hid --serial HIDT0021 --read 1 --timeout 100").err();
        assertTrue(silent.startsWith("orvex-usb: read reports from HIDT0021: no data within 100 ms (-150"), silent);
        String bulk = run(1, "echo --serial HIDT0021").err();
        assertEquals("orvex-usb: HIDT0021 is a HID device: use orvex-usb hid\n", bulk);
        for (String line : new String[] {"write --serial HIDT0021 --data 00", "read --serial HIDT0021",
            "bench --serial HIDT0021"}) {
            assertEquals(bulk, run(1, line).err());
        }
        assertEquals(-116, usb.usbRelease(0), "the session was left open");
    }

    @ParameterizedTest
    @ValueSource(strings = {
        "hid", "hid --index 0", "hid --read 1", "hid --index 0 --read 0", "hid --index 0 --read 1 --fill 1",
        "hid --index 0 --read 1 --packet-size 63", "hid --index 0 --read 1 --packet-size 1025",
        "hid --index 0 --data 01 --packet-size 64 --fill 256", "hid --index 0 --data 01 --input -"
    })
    void wrongUseIsTold(String line) {
        ToolRun run = run(2, line);
        assertTrue(run.err().contains("Usage: orvex-usb hid"), run.err());
    }
}
