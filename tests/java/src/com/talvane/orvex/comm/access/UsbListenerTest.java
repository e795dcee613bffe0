package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.talvane.orvex.comm.access.UsbChange.Kind;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** Listeners to changes of the lists and to data from devices. */
class UsbListenerTest extends AccessTest {
    private final BlockingQueue<UsbChange> changes = new LinkedBlockingQueue<>();

    /** What a device's listener was told: arrays, and the exception of the end. */
    private static final class Heard implements UsbInputListener {
        final BlockingQueue<byte[]> arrays = new LinkedBlockingQueue<>();
        final BlockingQueue<UsbException> ends = new LinkedBlockingQueue<>();

        @Override
        public void received(byte[] bytes) {
            arrays.add(bytes);
        }

        @Override
        public void ended(UsbException cause) {
            ends.add(cause);
        }
    }

    /** A listener to an endpoint that is being read. */
    private Heard listenTo(UsbDevice bench, int endpoint) {
        Heard heard = new Heard();
        bench.onData(endpoint, 64, heard);
        await("it reads", () -> bus.pending("bench", endpoint) > 0);
        return heard;
    }

    @Test
    void aListenerIsToldWhoLeavesComesBackAndArrives() throws Exception {
        UsbDeviceList list = list();
        UsbDevice bench = device(BENCH);
        session().onChange(changes::add);
        bus.unplug("bench");
        assertEquals(new UsbChange(Kind.LEFT, bench, list), next(changes));
        bus.plug("bench");
        assertEquals(new UsbChange(Kind.CAME_BACK, bench, list), next(changes));
        bus.plug("spare");
        UsbChange arrival = next(changes);
        assertEquals(Kind.ARRIVED, arrival.kind());
        assertEquals("SPARE005", arrival.device().info().serial());
        assertSame(list, arrival.list());
    }

    /** Others look at the list too, such as a transfer that has failed. */
    @Test
    void aDeviceThatIsBackBetweenTwoLooksOfTheListenersHasLeft() throws Exception {
        UsbDeviceList list = list();
        UsbDevice bench = device(BENCH);
        session().onChange(changes::add);
        session().raw.locked(() -> {
            bus.unplug("bench");
            await("it is gone", () -> list.refresh() == 0 && !bench.isPresent());
            bus.plug("bench");
            await("it is back", () -> list.refresh() == 0 && bench.isPresent());
            return list;
        });
        assertEquals(new UsbChange(Kind.LEFT, bench, list), next(changes));
        assertEquals(new UsbChange(Kind.CAME_BACK, bench, list), next(changes));
        assertEquals(new UsbDeviceList.Changes(List.of(bench), List.of(bench)), list.update());
        assertEquals(2, ((ListedDevice) bench).stay());
    }

    @Test
    void aListThatIsMadeLaterIsListenedToFromThenOn() throws Exception {
        session().onChange(changes::add);
        UsbDevice bench = device(BENCH);
        bus.unplug("bench");
        UsbChange change = next(changes);
        assertSame(bench, change.device());
        assertEquals(Kind.LEFT, change.kind());
    }

    @Test
    void whatAListenerIsToldAnUpdateTellsNevertheless() throws Exception {
        UsbDeviceList list = list();
        UsbDevice bench = device(BENCH);
        session().onChange(changes::add);
        bus.unplug("bench");
        next(changes);
        assertEquals(List.of(bench), list.update().left());
    }

    @Test
    void aSlowListenerDelaysNoOtherAndGetsAllInOrder() throws Exception {
        list();
        CountDownLatch slow = new CountDownLatch(1);
        BlockingQueue<Kind> late = new LinkedBlockingQueue<>();
        session().onChange(change -> {
            unchecked(() -> slow.await(AMPLE, TimeUnit.MILLISECONDS));
            late.add(change.kind());
        });
        session().onChange(changes::add);
        bus.unplug("bench");
        assertEquals(Kind.LEFT, next(changes).kind());
        bus.plug("bench");
        assertEquals(Kind.CAME_BACK, next(changes).kind());
        assertNull(late.peek());
        slow.countDown();
        assertEquals(Kind.LEFT, next(late));
        assertEquals(Kind.CAME_BACK, next(late));
    }

    @Test
    void anExceptionOfAListenerIsReportedAndEndsNothing() throws Exception {
        list();
        BlockingQueue<Throwable> reported = new LinkedBlockingQueue<>();
        AssertionError problem = new AssertionError("a mistake in a listener");
        AtomicInteger calls = new AtomicInteger();
        session().onChange(change -> {
            Thread.currentThread().setUncaughtExceptionHandler((thread, e) -> reported.add(e));
            changes.add(change);
            if (calls.getAndIncrement() == 0) {
                throw problem;
            }
        });
        bus.unplug("bench");
        assertSame(problem, next(reported));
        bus.plug("bench");
        next(changes);
        assertEquals(Kind.CAME_BACK, next(changes).kind());
    }

    @Test
    void anExecutorThatIsGivenCallsTheListener() throws Exception {
        list();
        ExecutorService executor = Executors.newSingleThreadExecutor(work -> new Thread(work, "own"));
        BlockingQueue<String> names = new LinkedBlockingQueue<>();
        session().onChange(change -> names.add(Thread.currentThread().getName()), executor);
        bus.unplug("bench");
        assertEquals("own", next(names));
        executor.shutdown();
    }

    @Test
    void aListenerGetsEachReadOfAnEndpoint() throws Exception {
        UsbDevice bench = open(BENCH);
        Heard bulk = new Heard();
        Heard interrupt = new Heard();
        bench.onData(0x81, 64, bulk);
        bench.onData(0x82, 64, interrupt);
        for (int size : new int[] {5, 64, 0, 7}) {
            assertEquals(size, write(bench, 0x01, pattern(size)));
            assertArrayEquals(pattern(size), next(bulk.arrays));
        }
        assertEquals(9, bench.writeInterrupt(0x02, pattern(9), 0, 9, AMPLE));
        assertArrayEquals(pattern(9), next(interrupt.arrays));
    }

    @Test
    void aListenerGetsWholePackets() throws Exception {
        UsbDevice bench = open(BENCH);
        Heard heard = new Heard();
        bench.onData(0x81, 10, heard);
        write(bench, 0x01, pattern(64));
        assertArrayEquals(pattern(64), next(heard.arrays));
        assertThrows(NullPointerException.class, () -> bench.onData(0x82, 64, null));
        assertThrows(NullPointerException.class, () -> bench.onData(0x82, 64, heard, null));
        bench.onData(0x82, 64, heard);
    }

    @Test
    void anEndpointHasOneListenerAndNoOtherReads() throws Exception {
        UsbDevice bench = open(BENCH);
        UsbSubscription first = bench.onData(0x81, 64, new Heard());
        assertThrows(IllegalStateException.class, () -> bench.onData(0x81, 64, new Heard()));
        assertThrows(IllegalStateException.class, () -> read(bench, 0x81, new byte[64]));
        assertThrows(IllegalArgumentException.class, () -> bench.onData(0x01, 64, new Heard()));
        assertThrows(IllegalArgumentException.class, () -> bench.onData(0x83, 0, new Heard()));
        assertThrows(UnsupportedOperationException.class, () -> bench.onReport(new Heard()));
        first.close();
        bench.onData(0x81, 64, new Heard());
    }

    @Test
    void aClosedSubscriptionLeavesTheDeviceOpenAndTheEndpointFree() throws Exception {
        UsbDevice bench = open(BENCH);
        UsbSubscription subscription = bench.onData(0x81, 64, new Heard());
        await("it reads", () -> bus.pending("bench", 0x81) > 0);
        subscription.close();
        await("it reads no more", () -> bus.pending("bench", 0x81) == 0);
        assertEquals(3, write(bench, 0x01, pattern(3)));
        assertEquals(3, read(bench, 0x81, new byte[64]));
    }

    @Test
    void aPulledDeviceEndsItsListener() throws Exception {
        UsbDevice bench = open(BENCH);
        Heard heard = listenTo(bench, 0x84);
        bus.unplug("bench");
        UsbException end = next(heard.ends);
        assertNotSame(UsbTimeoutException.class, end.getClass());
        bench.close();
    }

    @Test
    void aClosedDeviceIsNoEndForItsListener() throws Exception {
        UsbDevice bench = open(BENCH);
        Heard heard = listenTo(bench, 0x84);
        bench.close();
        assertNull(heard.ends.peek());
        Heard again = new Heard();
        bench.open().onData(0x81, 64, again);
        write(bench, 0x01, pattern(2));
        assertArrayEquals(pattern(2), next(again.arrays));
    }

    @Test
    void aListenerThatIsSlowLosesNothingOfAPipe() throws Exception {
        UsbDevice bench = open(BENCH);
        CountDownLatch slow = new CountDownLatch(1);
        BlockingQueue<byte[]> got = new LinkedBlockingQueue<>();
        bench.onData(0x81, 64, bytes -> {
            unchecked(() -> slow.await(AMPLE, TimeUnit.MILLISECONDS));
            got.add(bytes);
        });
        for (int i = 1; i <= 40; i++) {
            write(bench, 0x01, pattern(i));
        }
        slow.countDown();
        for (int i = 1; i <= 40; i++) {
            assertArrayEquals(pattern(i), next(got));
        }
    }

    /** Closes a device at random moments of its input: no listener is called afterwards, and no close hangs. */
    @Test
    @Tag("memory")
    void noListenerIsCalledAfterItsCloseWheneverThatIs() throws Exception {
        UsbDevice bench = open(BENCH);
        AtomicInteger late = new AtomicInteger();
        for (int i = 0; i < 300; i++) {
            AtomicBoolean closed = new AtomicBoolean();
            AtomicInteger calls = new AtomicInteger();
            UsbSubscription subscription = bench.onData(0x83, 64, bytes -> {
                calls.incrementAndGet();
                if (closed.get()) {
                    late.incrementAndGet();
                }
            });
            int wanted = i % 7;
            await("some calls", () -> calls.get() >= wanted);
            subscription.close();
            closed.set(true);
        }
        assertEquals(0, late.get());
    }

    /** Sessions that are closed while everything that listens is being told something. */
    @Test
    @Tag("memory")
    void noListenerIsCalledAfterTheSessionIsClosedWheneverThatIs() throws Exception {
        AtomicInteger late = new AtomicInteger();
        for (int i = 0; i < 20; i++) {
            AtomicBoolean closed = new AtomicBoolean();
            AtomicInteger calls = new AtomicInteger();
            Runnable note = () -> {
                calls.incrementAndGet();
                if (closed.get()) {
                    late.incrementAndGet();
                }
            };
            UsbSession session = UsbSession.open();
            UsbDevice bench = session.list(VENDOR, OTHER_VENDOR).find(BENCH).orElseThrow().open();
            for (int endpoint : new int[] {0x83, 0x81, 0x82}) {
                bench.onData(endpoint, 64, bytes -> note.run());
            }
            session.onChange(change -> note.run());
            bus.plug("spare");
            int wanted = 3 * i;
            await("some calls", () -> calls.get() >= wanted);
            session.close();
            closed.set(true);
            bus.unplug("spare");
        }
        assertEquals(0, late.get());
    }

    @Test
    void aListenerNeedNotCareForTheEnd() throws Exception {
        UsbDevice bench = open(BENCH);
        BlockingQueue<byte[]> got = new LinkedBlockingQueue<>();
        bench.onData(0x81, 64, got::add);
        bus.feed("bench", 0x81, pattern(5));
        assertArrayEquals(pattern(5), got.poll(AMPLE, TimeUnit.MILLISECONDS));
        bus.unplug("bench");
        UsbDeviceList list = list();
        await("the session sees it", () -> {
            unchecked(list::update);
            return !bench.isPresent();
        });
    }
}
