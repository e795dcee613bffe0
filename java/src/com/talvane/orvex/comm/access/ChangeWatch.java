package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.access.KnownDevices.News;
import com.talvane.orvex.comm.access.UsbChange.Kind;
import java.util.ArrayList;
import java.util.Collection;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.Executor;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.LockSupport;
import java.util.function.Consumer;

/**
 * Looks at the lists of a session from time to time and tells listeners what changed. It has a thread while there are
 * listeners; that asks again and again, since a look at a list without changes costs next to nothing.
 *
 * <p>Threads: any. Fields without a lock of their own are used under the session lock.
 */
final class ChangeWatch {
    private static final int LOOKS_PER_SECOND = 20;

    private final RawSession session;
    private final Collection<UsbDeviceList> lists;
    private final List<Watcher> watchers = new CopyOnWriteArrayList<>();
    private boolean looks;

    /** A listener, and what it knows. */
    private final class Watcher implements UsbSubscription {
        private final Consumer<? super UsbChange> listener;
        private final ListenerCalls calls;
        private final Map<UsbDeviceList, KnownDevices> known = new HashMap<>();

        Watcher(Consumer<? super UsbChange> listener, Executor executor) {
            this.listener = Objects.requireNonNull(listener, "listener");
            calls = new ListenerCalls(executor, Integer.MAX_VALUE);
        }

        private News newsOf(UsbDeviceList list) {
            return known.computeIfAbsent(list, key -> new KnownDevices()).take(list.places());
        }

        void tell(UsbDeviceList list) {
            News news = newsOf(list);
            news.left().forEach(device -> post(Kind.LEFT, device, list));
            news.cameBack().forEach(device -> post(Kind.CAME_BACK, device, list));
            news.arrived().forEach(device -> post(Kind.ARRIVED, device, list));
        }

        private void post(Kind kind, UsbDevice device, UsbDeviceList list) {
            UsbChange change = new UsbChange(kind, device, list, device.doubt());
            calls.post(() -> listener.accept(change));
        }

        @Override
        public void close() {
            watchers.remove(this);
            session.listeners.remove(calls);
            calls.end();
            calls.awaitEnd();
        }

        @Override
        public String toString() {
            return "listener to changes";
        }
    }

    /**
     * A watch without listeners.
     *
     * @param session the session
     * @param lists   its lists, changed under the session lock only
     */
    ChangeWatch(RawSession session, Collection<UsbDeviceList> lists) {
        this.session = session;
        this.lists = lists;
    }

    UsbSubscription add(Consumer<? super UsbChange> listener, Executor executor) {
        Watcher watcher = new Watcher(listener, executor);
        return session.locked(() -> {
            lists.forEach(watcher::newsOf);
            watchers.add(watcher);
            session.listeners.add(watcher.calls);
            if (!looks) {
                looks = true;
                session.threads.execute(this::lookAgainAndAgain);
            }
            return watcher;
        });
    }

    /** Under the session lock: listeners know a new list as it is. */
    void begin(UsbDeviceList list) {
        watchers.forEach(watcher -> watcher.newsOf(list));
    }

    private void lookAgainAndAgain() {
        while (look()) {
            LockSupport.parkNanos(this, TimeUnit.SECONDS.toNanos(1) / LOOKS_PER_SECOND);
        }
    }

    /** Returns false when there is nothing to look at any more. */
    private boolean look() {
        boolean[] goesOn = {false};
        session.ifOpen(() -> {
            looks = !watchers.isEmpty();
            goesOn[0] = looks;
            for (UsbDeviceList list : looks ? new ArrayList<>(lists) : List.<UsbDeviceList>of()) {
                list.refresh();
                watchers.forEach(watcher -> watcher.tell(list));
            }
        });
        return goesOn[0];
    }
}
