package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.concurrent.Future;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.Timeout.ThreadMode;

/** A device that is pulled and plugged in again and again, each time in the middle of a read. */
class PlugCycleTest extends UsbTest {
    private static final int WARM_UP = 10;
    private static final int GROWTH_KB = 2048;
    /** Every look at the devices keeps their parsed configurations. */
    private static final int GROWTH_KB_PER_CYCLE = 16;

    /** The system property says how many; without it fewer on a kernel, where one cycle may take a second. */
    @Test
    @Timeout(value = 900, threadMode = ThreadMode.SEPARATE_THREAD)
    void manyCyclesLoseNoEventAndLeaveThreadsDescriptorsAndMemoryAsTheyWere() throws Exception {
        Device bench = find(sessionWithList(), "BENCH00001");
        cycles(bench, WARM_UP);
        Footprint before = Footprint.now();
        int count = Integer.getInteger("orvex.test.cycles", bus.isMemory() ? 200 : 20);
        cycles(bench, count);
        Footprint.assertAsBefore(before, GROWTH_KB + count * GROWTH_KB_PER_CYCLE);
        assertEquals(1, devices(bench.list()).stream().filter(d -> d.field(7).equals("BENCH00001")).count());
        assertEquals(0, open(bench).close());
    }

    /** The device is closed while it is gone; every other time not at all, and then opened anew over what it was. */
    private void cycles(Device bench, int count) throws Exception {
        for (int i = 0; i < count; i++) {
            assertEquals(0, bench.open());
            assertEchoes(bench);
            Future<Integer> read = whileWaiting("bench", 0x84, () -> bench.read(0x84, 0, new byte[64]));
            bus.unplug("bench");
            assertEquals(0, result(read));
            if (i % 2 == 0) {
                assertEquals(0, bench.close());
            }
            updateUntilPresent(bench, false);
            bus.plug("bench");
            updateUntilPresent(bench, true);
        }
    }

    private static void assertEchoes(Device bench) {
        byte[] echo = new byte[64];
        assertEquals(64, bench.write(0x01, pattern(64)));
        assertEquals(64, bench.read(0x81, echo));
        assertArrayEquals(pattern(64), echo);
    }
}
