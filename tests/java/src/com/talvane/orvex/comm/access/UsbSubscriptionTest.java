package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.lang.ref.WeakReference;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.Executor;
import java.util.concurrent.Future;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicReference;
import java.util.concurrent.locks.LockSupport;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** How listeners end: with their subscription, device or session. */
class UsbSubscriptionTest extends AccessTest {
    private final BlockingQueue<Object> heard = new LinkedBlockingQueue<>();
    /** What an executor has been given to run. */
    private final BlockingQueue<Runnable> tasks = new LinkedBlockingQueue<>();

    /** A listener whose first call lasts until it may end. */
    private static final class Slow {
        final CountDownLatch began = new CountDownLatch(1);
        final CountDownLatch goOn = new CountDownLatch(1);
        final AtomicInteger finished = new AtomicInteger();

        void accept() {
            began.countDown();
            unchecked(() -> goOn.await(AMPLE, TimeUnit.MILLISECONDS));
            finished.incrementAndGet();
        }

        /** A close while the call is under way returns after it. */
        void assertIsWaitedForBy(Runnable close) throws Exception {
            began.await();
            AtomicReference<Thread> closer = new AtomicReference<>();
            Future<Integer> closed = onAnotherThread(() -> {
                closer.set(Thread.currentThread());
                close.run();
                return finished.get();
            });
            await("the close waits", () -> closer.get() != null && closer.get().getState() == Thread.State.WAITING);
            goOn.countDown();
            assertEquals(1, result(closed));
        }
    }

    @Test
    void aCloseWaitsForTheCallThatIsUnderWay() throws Exception {
        list();
        Slow slow = new Slow();
        UsbSubscription subscription = session().onChange(change -> slow.accept());
        bus.unplug("bench");
        slow.assertIsWaitedForBy(subscription::close);
        subscription.close();
    }

    @Test
    void theCloseOfADeviceWaitsForTheCallThatIsUnderWay() throws Exception {
        UsbDevice bench = open(BENCH);
        Slow slow = new Slow();
        bench.onData(0x81, 64, bytes -> slow.accept());
        bus.feed("bench", 0x81, pattern(5));
        slow.assertIsWaitedForBy(bench::close);
    }

    @Test
    void theCloseOfTheSessionWaitsForTheCallOfItsOwnListener() throws Exception {
        list();
        Slow slow = new Slow();
        session().onChange(change -> slow.accept());
        bus.unplug("bench");
        slow.assertIsWaitedForBy(session()::close);
    }

    @Test
    void theCloseOfTheSessionWaitsForTheCallsThatAreUnderWay() throws Exception {
        UsbDevice bench = open(BENCH);
        Slow slow = new Slow();
        bench.onData(0x81, 64, bytes -> slow.accept());
        bus.feed("bench", 0x81, pattern(5));
        slow.assertIsWaitedForBy(session()::close);
    }

    private void assertNotToldAfter(Runnable close) throws InterruptedException {
        Runnable call = next(tasks);
        close.run();
        call.run();
        assertNull(heard.peek());
    }

    @Test
    void whatWaitsForAnExecutorIsNotToldAfterTheClose() throws Exception {
        list();
        UsbSubscription subscription = session().onChange(heard::add, tasks::add);
        bus.unplug("bench");
        assertNotToldAfter(subscription::close);
    }

    @Test
    void whatWaitsForAnExecutorIsNotToldAfterTheDeviceIsClosed() throws Exception {
        UsbDevice bench = open(BENCH);
        bench.onData(0x81, 64, heard::add, tasks::add);
        bus.feed("bench", 0x81, pattern(5));
        assertNotToldAfter(bench::close);
    }

    @Test
    void whatWaitsForAnExecutorIsNotToldAfterTheSessionIsClosed() throws Exception {
        list();
        session().onChange(heard::add, tasks::add);
        bus.unplug("bench");
        assertNotToldAfter(session()::close);
    }

    @Test
    void afterTheSessionIsClosedNoListenerIsCalled() throws Exception {
        UsbDevice bench = open(BENCH);
        bench.onData(0x81, 64, heard::add);
        session().onChange(heard::add);
        bus.feed("bench", 0x81, pattern(5));
        next(heard);
        session().close();
        assertThrows(IllegalStateException.class, () -> session().onChange(heard::add));
        bus.unplug("bench");
        assertNull(heard.peek());
    }

    @Test
    void listenersThatCloseTheSessionAtTheSameTimeDoNotWaitForEachOther() throws Exception {
        list();
        UsbSession session = session();
        CountDownLatch both = new CountDownLatch(2);
        CountDownLatch closed = new CountDownLatch(2);
        for (int i = 0; i < 2; i++) {
            session.onChange(change -> {
                both.countDown();
                unchecked(() -> both.await(AMPLE, TimeUnit.MILLISECONDS));
                session.close();
                closed.countDown();
            });
        }
        bus.unplug("bench");
        closed.await();
    }

    @Test
    void aListenerMayCloseItsOwnSubscription() throws Exception {
        list();
        AtomicReference<UsbSubscription> own = new AtomicReference<>();
        own.set(session().onChange(change -> {
            own.get().close();
            heard.add(change);
        }));
        bus.unplug("bench");
        next(heard);
    }

    @Test
    @Tag("memory")
    void aClosedSubscriptionIsForgotten() throws Exception {
        list();
        UsbDevice bench = open(BENCH);
        for (Subscribe subscribe : List.<Subscribe>of(executor -> session().onChange(heard::add, executor),
                executor -> bench.onData(0x81, 64, heard::add, executor))) {
            WeakReference<Executor> executor = new WeakReference<>(executorOfAClosedSubscription(subscribe));
            await("nobody knows it", () -> {
                System.gc();
                return executor.get() == null;
            });
        }
    }

    @FunctionalInterface
    private interface Subscribe {
        UsbSubscription with(Executor executor) throws UsbException;
    }

    private static Executor executorOfAClosedSubscription(Subscribe subscribe) throws UsbException {
        Executor executor = new Executor() {
            @Override
            public void execute(Runnable call) {
                call.run();
            }
        };
        subscribe.with(executor).close();
        return executor;
    }

    @Test
    void aListenerDoesNotKeepTheProgramAlive() throws Exception {
        list();
        session().onChange(change -> heard.add(Thread.currentThread().isDaemon()));
        bus.unplug("bench");
        assertEquals(true, next(heard));
    }

    @Test
    void betweenTwoLooksAtTheListsTheirThreadSleeps() throws Exception {
        list();
        session().onChange(heard::add);
        await("it sleeps", () -> Thread.getAllStackTraces().keySet().stream()
                .anyMatch(thread -> LockSupport.getBlocker(thread) instanceof ChangeWatch));
    }

    /** A listener to an endpoint that stalls; it is told so. */
    private void listenToAStall(UsbDevice bench) {
        bench.onData(0x85, 64, new UsbInputListener() {
            @Override
            public void received(byte[] bytes) {
            }

            @Override
            public void ended(UsbException cause) {
                heard.add(cause);
            }
        });
    }

    @Test
    void anEndpointIsFreeAgainWhenItsListenerHasEnded() throws Exception {
        UsbDevice bench = open(BENCH);
        listenToAStall(bench);
        assertInstanceOf(UsbStalledException.class, next(heard));
        await("the endpoint is free", () -> {
            try {
                listenToAStall(bench);
                return true;
            } catch (IllegalStateException e) {
                return false;
            }
        });
        assertInstanceOf(UsbStalledException.class, next(heard));
    }
}
