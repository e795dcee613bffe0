package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** When threads are looked at. */
@Tag("memory")
class MissedInterruptsTest {
    @Test
    void aLookIsTakenAgainAndAgain() throws InterruptedException {
        CountDownLatch looks = new CountDownLatch(3);
        MissedInterrupts missed = new MissedInterrupts();
        Runnable look = looks::countDown;
        missed.add(look);
        assertTrue(looks.await(30, TimeUnit.SECONDS));
        missed.remove(look);
    }

    @Test
    void javaMissesInterruptsBefore21() {
        assertEquals(Runtime.version().feature() < 21, MissedInterrupts.ofAllCalls() != null);
    }
}
