package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The results of the methods when memory runs out; nothing may remain half done. See {@link AllocationSweep}. */
@Tag("preload")
class AllocationSweepTest {
    private static final int LEAST_POINTS = 400;

    @TempDir
    private Path folder;

    @Test
    void noAllocationThatFailsEndsTheVirtualMachineOrLeavesAnythingHalfMade() throws Exception {
        Path memory = ChildVm.testsJar().resolveSibling("libmissing_memory.so");
        ChildVm.Outcome sweep = new ChildVm().withBus(folder.resolve("bus"))
                .withEnvironment("LD_PRELOAD", memory.toString()).run("withoutMemory");
        assertEquals(0, sweep.status(), () -> sweep.out() + sweep.err());
        assertEquals("", sweep.err());
        System.out.print(sweep.out());
        String[] lines = sweep.out().split("\n");
        String last = lines[lines.length - 1];
        assertTrue(last.endsWith(" points of memory running out"), last);
        assertTrue(Integer.parseInt(last.split(" ")[0]) >= LEAST_POINTS, last);
    }
}
