package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Arrays;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.Callable;
import java.util.concurrent.Future;
import java.util.concurrent.LinkedBlockingQueue;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** Transfers of threads that are interrupted. */
class UsbInterruptTest extends AccessTest {
    private final BlockingQueue<Thread> threads = new LinkedBlockingQueue<>();

    @AfterEach
    void clearTheStatus() {
        Thread.interrupted();
    }

    /** The call, which is to be interrupted; returns what its exception says had moved, and wants the status set. */
    private Callable<Integer> interrupted(Callable<Integer> transfer) {
        return () -> {
            threads.add(Thread.currentThread());
            UsbInterruptedException e = assertThrows(UsbInterruptedException.class, transfer::call);
            assertTrue(Thread.interrupted(), "the status is not set");
            return e.moved();
        };
    }

    private int movedAfterInterrupt(int endpoint, Callable<Integer> transfer) throws Exception {
        Future<Integer> moved = whileWaiting("bench", endpoint, interrupted(transfer));
        threads.take().interrupt();
        return result(moved);
    }

    @Test
    void anInterruptCancelsATransferOfEveryKind() throws Exception {
        UsbDevice bench = open(BENCH);
        byte[] bytes = new byte[64];
        assertEquals(0, movedAfterInterrupt(0x84, () -> read(bench, 0x84, bytes)));
        assertEquals(0, movedAfterInterrupt(0x86, () -> bench.readInterrupt(0x86, bytes, 0, 64, AMPLE)));
        assertEquals(0, movedAfterInterrupt(0x04, () -> write(bench, 0x04, bytes)));
        assertEquals(0, movedAfterInterrupt(0x07, () -> bench.writeInterrupt(0x07, bytes, 0, 64, AMPLE)));
        assertEquals(0, movedAfterInterrupt(0x00, () -> bench.readControl(0xC0, 4, 0, 0, 1, AMPLE).length));
        assertEquals(1, write(bench, 0x01, new byte[1]));
    }

    @Test
    @Tag("memory")
    void whatHadMovedIsTold() throws Exception {
        bus.endpoint("bench", 0x84, "{\"limit\": 64}");
        UsbDevice bench = open(BENCH);
        byte[] buffer = new byte[200];
        assertEquals(64, movedAfterInterrupt(0x84, () -> read(bench, 0x84, buffer)));
        for (int i = 0; i < 64; i++) {
            assertEquals((byte) i, buffer[i]);
        }
    }

    @Test
    void aThreadThatIsInterruptedAlreadyMovesNothing() throws Exception {
        UsbDevice bench = open(BENCH);
        Thread.currentThread().interrupt();
        assertEquals(0, interrupted(() -> write(bench, 0x03, new byte[64])).call());
        assertEquals(0, bus.received("bench", 0x03).size());
    }

    @Test
    void anInterruptEndsTheWaitForATurn() throws Exception {
        UsbDevice bench = open(BENCH);
        Future<Integer> first = whileWaiting("bench", 0x81, () -> read(bench, 0x81, new byte[64]));
        Future<Integer> second = onAnotherThread(interrupted(() -> read(bench, 0x81, new byte[64])));
        Thread waiting = threads.take();
        await("it waits for its turn", () -> waiting.getState() == Thread.State.WAITING);
        waiting.interrupt();
        assertEquals(0, result(second));
        bus.feed("bench", 0x81, pattern(5));
        assertEquals(5, result(first));
    }

    @Test
    void aTransferOfAnotherThreadGoesOn() throws Exception {
        UsbDevice bench = open(BENCH);
        Future<Integer> other = whileWaiting("bench", 0x81, () -> read(bench, 0x81, new byte[64]));
        assertEquals(0, movedAfterInterrupt(0x84, () -> read(bench, 0x84, new byte[64])));
        bus.feed("bench", 0x81, pattern(5));
        assertEquals(5, result(other));
    }

    @Test
    void anInterruptedThreadReadsFullyWhatHadMoved() throws Exception {
        UsbDevice bench = open(BENCH);
        byte[] buffer = new byte[100];
        bus.feed("bench", 0x81, pattern(30));
        Future<Integer> moved = onAnotherThread(interrupted(() -> {
            bench.readFully(0x81, buffer, 0, 100, UsbDevice.FOREVER);
            return 0;
        }));
        Thread reader = threads.take();
        await("it waits for the rest", () -> buffer[29] != 0 && bus.pending("bench", 0x81) > 0);
        reader.interrupt();
        assertEquals(30, result(moved));
        assertArrayEquals(pattern(30), Arrays.copyOf(buffer, 30));
    }

    @Test
    void manyInterruptsAtAnyMomentHarmNoTransfer() throws Exception {
        UsbDevice bench = open(BENCH);
        for (int i = 0; i < 200; i++) {
            Future<Integer> moved = onAnotherThread(interrupted(() -> read(bench, 0x84, new byte[64])));
            threads.take().interrupt();
            assertEquals(0, result(moved));
        }
        assertEquals(1, write(bench, 0x01, new byte[1]));
        assertEquals(1, read(bench, 0x81, new byte[64]));
    }
}
