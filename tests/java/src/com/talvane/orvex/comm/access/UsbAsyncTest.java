package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayDeque;
import java.util.Deque;
import java.util.HexFormat;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;

/** Transfers as futures. */
class UsbAsyncTest extends AccessTest {
    private static <T> T get(CompletableFuture<T> future) throws Exception {
        return future.get(AMPLE, TimeUnit.MILLISECONDS);
    }

    private static Throwable failureOf(CompletableFuture<?> future) {
        return assertThrows(ExecutionException.class, () -> get(future)).getCause();
    }

    @Test
    void transfersOfEveryKindCompleteTheirFutures() throws Exception {
        UsbAsync async = new UsbAsync(open(BENCH));
        byte[] sent = pattern(9);
        CompletableFuture<Integer> write = async.writeAsync(0x01, sent, AMPLE);
        sent[0] = 0;
        assertEquals(9, get(write));
        assertArrayEquals(pattern(9), get(async.readAsync(0x81, 64, AMPLE)));
        assertEquals(5, get(async.writeAsync(0x02, pattern(5), AMPLE)));
        assertArrayEquals(pattern(5), get(async.readAsync(0x82, 64, AMPLE)));
        assertEquals(3, get(async.controlAsync(0x40, 1, 0, 0, pattern(3), AMPLE)));
        assertArrayEquals(pattern(3), get(async.controlAsync(0xC0, 1, 0, 0, 64, AMPLE)));
        assertArrayEquals(HexFormat.of().parseHex("A1B2C3"), get(async.controlAsync(0xC0, 2, 0x1234, 0x56, 64, AMPLE)));
        assertEquals("transfers of BENCH00001", async.toString());
    }

    @Test
    void aTransferDoesNotKeepTheProgramAlive() throws Exception {
        UsbDevice bench = open(BENCH);
        CompletableFuture<byte[]> read = new UsbAsync(bench).readAsync(0x81, 64, UsbDevice.FOREVER);
        await("it reads", () -> bus.pending("bench", 0x81) > 0);
        assertTrue(Thread.getAllStackTraces().keySet().stream()
                .filter(thread -> thread.getName().equals("orvex-usb-transfer")).allMatch(Thread::isDaemon));
        read.cancel(true);
    }

    @Test
    void aQuestionAndItsAnswerAreComposed() throws Exception {
        UsbAsync async = new UsbAsync(open(BENCH));
        assertArrayEquals(pattern(7),
                get(async.writeAsync(0x01, pattern(7), AMPLE).thenCompose(n -> async.readAsync(0x81, 64, AMPLE))));
    }

    @Test
    void failuresAreThoseOfTheMethods() throws Exception {
        UsbAsync async = new UsbAsync(open(BENCH));
        assertInstanceOf(UsbStalledException.class, failureOf(async.readAsync(0x85, 64, AMPLE)));
        assertInstanceOf(UsbTimeoutException.class, failureOf(async.writeAsync(0x04, pattern(5), 20)));
        assertInstanceOf(IllegalArgumentException.class, failureOf(async.readAsync(0x01, 64, AMPLE)));
        assertInstanceOf(IllegalArgumentException.class, failureOf(async.controlAsync(0x40, 1, 0, 0, 5, AMPLE)));
    }

    @Test
    void cancellingAFutureCancelsTheTransfer() throws Exception {
        UsbDevice bench = open(BENCH);
        UsbAsync async = new UsbAsync(bench);
        CompletableFuture<byte[]> read = async.readAsync(0x81, 64, UsbDevice.FOREVER);
        await("it reads", () -> bus.pending("bench", 0x81) > 0);
        assertTrue(read.cancel(true));
        await("it reads no more", () -> bus.pending("bench", 0x81) == 0);
        assertEquals(4, write(bench, 0x01, pattern(4)));
        assertEquals(4, read(bench, 0x81, new byte[64]));
        read.cancel(true);
    }

    @Test
    void aTransferThatIsCancelledBeforeItBeginsDoesNotBegin() throws Exception {
        UsbDevice bench = open(BENCH);
        Deque<Runnable> tasks = new ArrayDeque<>();
        UsbAsync async = new UsbAsync(bench, tasks::add);
        CompletableFuture<Integer> write = async.writeAsync(0x03, pattern(4), AMPLE);
        write.cancel(false);
        tasks.remove().run();
        assertTrue(bus.received("bench", 0x03).isEmpty());
        assertTrue(write.isCancelled());
    }

    @Test
    void aThreadOfAnExecutorIsAsItWasAfterACancel() throws Exception {
        ExecutorService one = Executors.newSingleThreadExecutor();
        UsbAsync async = new UsbAsync(open(BENCH), one);
        for (int i = 0; i < 50; i++) {
            async.readAsync(0x84, 64, UsbDevice.FOREVER).cancel(true);
            assertEquals(3, get(async.writeAsync(0x03, pattern(3), AMPLE)));
        }
        one.shutdown();
    }
}
