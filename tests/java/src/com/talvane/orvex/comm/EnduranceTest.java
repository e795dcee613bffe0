package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.Timeout.ThreadMode;

/**
 * Repeats work many times and checks that the process holds no more resources afterwards. System properties set the
 * number of repetitions (script/soak sets them high); the default is small, and smaller on a kernel, where everything
 * takes longer.
 */
@Timeout(value = 24 * 3600, threadMode = ThreadMode.SEPARATE_THREAD)
class EnduranceTest extends UsbTest {
    /** Less than the smallest piece of memory for each of 100,000 transfers; a sanitizer keeps more. */
    private static final int GROWTH_KB = Integer.getInteger("orvex.test.growthKb", 2048);
    /** Deliberate: enumerating while a device comes and goes keeps the configurations that libusb has parsed. */
    private static final int KEPT_CONFIGURATIONS_KB = 16;

    private int keptKb;

    /** A piece of work that is repeated. */
    private interface Step {
        void run(int number) throws Exception;
    }

    private int count(String property, int onMemory, int onKernel) {
        return Integer.getInteger("orvex.test." + property, bus.isMemory() ? onMemory : onKernel);
    }

    /** A warm-up before the first measurement allocates what is allocated only once. */
    private void endure(String what, int count, Step step) throws Exception {
        Progress progress = new Progress(what, count);
        for (int i = 0; i < Math.max(10, count / 10); i++) {
            step.run(i);
        }
        Footprint before = Footprint.now();
        keptKb = 0;
        progress.begin();
        for (int i = 0; i < count; i++) {
            step.run(i);
            progress.done(i + 1);
        }
        progress.end(before, Footprint.now(), keptKb);
        Footprint.assertAsBefore(before, GROWTH_KB + keptKb);
    }

    private static void echo(Device device, byte[] data, byte[] buffer) {
        assertEquals(data.length, device.write(0x01, data));
        assertEquals(data.length, device.read(0x81, buffer));
    }

    private static void assertEchoes(Device device) {
        byte[] buffer = new byte[64];
        echo(device, pattern(64), buffer);
        assertArrayEquals(pattern(64), buffer);
    }

    @Test
    void manyTransfersLeaveThreadsDescriptorsAndMemoryAsTheyWere() throws Exception {
        Device bench = openBench();
        bus.endpoint("bench", 0x01, "{\"record\": false}");
        byte[] data = pattern(64);
        byte[] buffer = new byte[64];
        endure("round trips", count("transfers", 100_000, 5_000) / 2, i -> echo(bench, data, buffer));
        assertArrayEquals(data, buffer);
    }

    @Test
    void openingAndClosingManyTimesLeavesThreadsDescriptorsAndMemoryAsTheyWere() throws Exception {
        Device bench = find(sessionWithList(), "BENCH00001");
        endure("open and close", count("opens", 500, 50), i -> {
            assertEquals(0, bench.open());
            assertEchoes(bench);
            assertEquals(0, bench.close());
        });
    }

    /** Unplugged in the middle of a read; closed while absent or, every other time, opened again without a close. */
    @Test
    void manyPlugCyclesLoseNoEventAndLeaveThreadsDescriptorsAndMemoryAsTheyWere() throws Exception {
        Device bench = find(sessionWithList(), "BENCH00001");
        endure("plug cycles", count("cycles", 200, 20), i -> {
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
            keptKb += KEPT_CONFIGURATIONS_KB;
        });
        assertEquals(1, devices(bench.list()).stream().filter(d -> d.field(7).equals("BENCH00001")).count());
        assertEquals(0, open(bench).close());
    }

    /** One thread uses the lists and plugs and unplugs a device; each of the others uses one endpoint. */
    @Test
    void transfersOnManyEndpointsGoOnWhileAnotherDeviceComesAndGoes() throws Exception {
        Device bench = openBench();
        Device composite = open(find(bench.list(), "COMP0003"));
        Device pair = find(bench.list(), "PAIR0002");
        for (int endpoint : new int[] {0x01, 0x02, 0x03}) {
            bus.endpoint("bench", endpoint, "{\"record\": false}");
        }
        bus.endpoint("composite", 0x01, "{\"record\": false}");
        int transfers = count("storm", 2_000, 100);
        endure("rounds of a storm", count("storms", 10, 3), i -> storm(transfers, List.of(
                () -> echoes(bench),
                () -> interruptEchoes(bench),
                () -> bench.write(0x03, pattern(512)) == 512,
                () -> bench.read(0x83, new byte[512]) == 512,
                () -> echoes(composite),
                () -> List.of(0, -150).contains(bench.read(0x84, 5, new byte[64])),
                () -> cancelsInTime(bench)), () -> comeAndGo(pair)));
    }

    private static boolean echoes(Device device) {
        assertEchoes(device);
        return true;
    }

    /** Rarely: most cancels find nothing and return at once, and would take up the whole count. */
    private static boolean cancelsInTime(Device device) throws InterruptedException {
        TimeUnit.MILLISECONDS.sleep(1);
        return List.of(0, -5).contains(device.cancel(0x84));
    }

    private static boolean interruptEchoes(Device device) {
        return device.writeInterrupt(0x02, pattern(64)) == 64 && device.readInterrupt(0x82, new byte[64]) == 64;
    }

    private void comeAndGo(Device pair) {
        assertEquals(0, pair.open());
        assertEchoes(pair);
        bus.unplug("pair");
        updateUntilPresent(pair, false);
        assertEquals(0, pair.close());
        bus.plug("pair");
        updateUntilPresent(pair, true);
        keptKb += KEPT_CONFIGURATIONS_KB;
    }

    /** Runs the jobs, each on a separate thread, `transfers` times in all, and meanwhile other work on this thread. */
    private static void storm(int transfers, List<Callable<Boolean>> jobs, Runnable beside) throws Exception {
        AtomicInteger left = new AtomicInteger(transfers);
        List<Future<Integer>> threads = new ArrayList<>();
        for (Callable<Boolean> job : jobs) {
            threads.add(onAnotherThread(() -> {
                int done = 0;
                for (; left.decrementAndGet() >= 0; done++) {
                    assertTrue(job.call());
                }
                return done;
            }));
        }
        do {
            beside.run();
        } while (left.get() > 0);
        for (Future<Integer> thread : threads) {
            thread.get(Device.AMPLE, TimeUnit.MILLISECONDS);
        }
    }
}
