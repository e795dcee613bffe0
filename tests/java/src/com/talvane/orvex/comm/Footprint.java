package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.stream.Stream;

/** What this process holds of the machine. */
record Footprint(int threads, int descriptors, int residentKb) {
    private static final Path STATUS = Path.of("/proc/self/status");

    static Footprint now() throws IOException {
        assumeTrue(Files.exists(STATUS), "needs the figures of /proc/self");
        System.gc();
        try (Stream<Path> open = Files.list(Path.of("/proc/self/fd"))) {
            return new Footprint(status("Threads:"), (int) open.count(), status("VmRSS:"));
        }
    }

    /**
     * One more thread or descriptor may be the virtual machine's own. Memory tells of the work in between only when the
     * machine's heap has a fixed size and was touched whole at its start.
     */
    static void assertAsBefore(Footprint before, int mostGrowthKb) throws IOException {
        Footprint after = now();
        assertTrue(after.threads <= before.threads + 1, () -> before + " became " + after);
        assertTrue(after.descriptors <= before.descriptors + 1, () -> before + " became " + after);
        assertTrue(after.residentKb <= before.residentKb + mostGrowthKb, () -> before + " became " + after);
    }

    private static int status(String key) throws IOException {
        return Files.readAllLines(STATUS).stream()
                .filter(line -> line.startsWith(key))
                .map(line -> line.replaceAll("\\D", ""))
                .mapToInt(Integer::parseInt)
                .findFirst()
                .orElseThrow();
    }
}
