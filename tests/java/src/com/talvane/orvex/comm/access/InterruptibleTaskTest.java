package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** Work that is interrupted before, while and after it runs. */
@Tag("memory")
class InterruptibleTaskTest {
    private int runs;
    private boolean sawInterrupt;

    @Test
    void anInterruptWhileItRunsIsOfTheWorkOnly() {
        InterruptibleTask[] task = new InterruptibleTask[1];
        task[0] = new InterruptibleTask(() -> {
            task[0].interrupt();
            sawInterrupt = Thread.currentThread().isInterrupted();
        });
        task[0].run();
        assertTrue(sawInterrupt);
        assertFalse(Thread.interrupted());
    }

    @Test
    void whatIsInterruptedBeforeDoesNotBegin() {
        InterruptibleTask task = new InterruptibleTask(() -> runs++);
        task.interrupt();
        task.run();
        assertEquals(0, runs);
        assertFalse(Thread.interrupted());
    }

    @Test
    void anInterruptAfterwardsIsOfNobody() {
        InterruptibleTask task = new InterruptibleTask(() -> runs++);
        task.run();
        task.interrupt();
        assertEquals(1, runs);
        assertFalse(Thread.interrupted());
    }

    @Test
    void anInterruptOfTheThreadItselfIsKept() {
        Thread.currentThread().interrupt();
        new InterruptibleTask(() -> runs++).run();
        assertTrue(Thread.interrupted());
    }
}
