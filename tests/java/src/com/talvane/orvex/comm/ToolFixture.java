package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.tool.ToolRun;
import org.junit.jupiter.api.BeforeEach;

/** A test of the tool's commands on a bus. The session is theirs: a command that leaves it open fails. */
abstract class ToolFixture extends UsbTest {
    private static final String TERMINALS = "orvex.usb.terminals";

    @BeforeEach
    void waitForTheHost() {
        openSession();
        usb.usbRelease(0);
    }

    final ToolRun run(String line) {
        return ToolRun.of(new byte[0], line.split(" "));
    }

    /** Runs a command line as if these streams were a terminal. */
    final ToolRun onTerminals(String which, String line) {
        System.setProperty(TERMINALS, which);
        try {
            return run(line);
        } finally {
            System.clearProperty(TERMINALS);
        }
    }

    final ToolRun good(String line) {
        ToolRun run = run(line);
        assertEquals(0, run.status(), run.err());
        assertEquals(-116, usb.usbRelease(0), "the session was left open");
        return run;
    }

    final void assertFails(String line, String text) {
        ToolRun run = run(line);
        assertEquals(1, run.status(), run.err());
        assertTrue(run.err().startsWith("orvex-usb: "), run.err());
        assertTrue(run.err().contains(text), run.err());
        assertEquals(-116, usb.usbRelease(0), "the session was left open");
    }

    final void assertWrongUse(String line) {
        ToolRun run = run(line);
        assertEquals(2, run.status(), run.err());
        assertTrue(run.err().contains("Usage: orvex-usb"), run.err());
    }
}
