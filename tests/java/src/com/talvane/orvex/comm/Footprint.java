package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Stream;
import javax.management.JMException;
import javax.management.ObjectName;

/**
 * The resources of this process: threads, descriptors, private memory, and global references of native code to Java
 * objects. Mapped files do not count as memory: they grow with each part of a library that is used for the first time.
 */
record Footprint(int threads, int descriptors, int residentKb, int references) {
    private static final Path STATUS = Path.of("/proc/self/status");
    /** An exact count of pages; the figures in the status may lag some megabytes behind. */
    private static final Path MEMORY = Path.of("/proc/self/smaps_rollup");
    private static final Pattern REFERENCES = Pattern.compile("JNI global refs: (\\d+)");

    static Footprint now() throws IOException {
        assumeTrue(Files.exists(STATUS), "needs the figures of /proc/self");
        System.gc();
        int references = globalReferences();
        try (Stream<Path> open = Files.list(Path.of("/proc/self/fd"))) {
            return new Footprint(
                    figure(STATUS, "Threads:"), (int) open.count(), figure(MEMORY, "Anonymous:"), references);
        }
    }

    /**
     * One more thread or descriptor may be the virtual machine's own, and so may some references. Memory is comparable
     * only when the virtual machine's heap has a fixed size and was touched completely at its start.
     */
    static void assertAsBefore(Footprint before, int mostGrowthKb) throws IOException {
        Footprint after = now();
        assertTrue(after.threads <= before.threads + 1, () -> before + " became " + after);
        assertTrue(after.descriptors <= before.descriptors + 1, () -> before + " became " + after);
        assertTrue(after.residentKb <= before.residentKb + mostGrowthKb, () -> before + " became " + after);
        assertTrue(after.references <= before.references + 5, () -> before + " became " + after);
    }

    private static int figure(Path file, String key) throws IOException {
        return Files.readAllLines(file).stream()
                .filter(line -> line.startsWith(key))
                .map(line -> line.replaceAll("\\D", ""))
                .mapToInt(Integer::parseInt)
                .findFirst()
                .orElseThrow();
    }

    /** The virtual machine prints their number at the end of a thread dump. */
    private static int globalReferences() {
        try {
            Object threads = ManagementFactory.getPlatformMBeanServer().invoke(
                    new ObjectName("com.sun.management:type=DiagnosticCommand"), "threadPrint",
                    new Object[] {new String[0]}, new String[] {String[].class.getName()});
            Matcher found = REFERENCES.matcher(threads.toString());
            assertTrue(found.find(), "the virtual machine does not tell its references");
            return Integer.parseInt(found.group(1));
        } catch (JMException e) {
            throw new AssertionError(e);
        }
    }
}
