package com.talvane.orvex.comm.access;

import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;

/** The listeners of one device or session, which end with it. */
final class Listeners {
    private final Set<ListenerCalls> calls = ConcurrentHashMap.newKeySet();

    void add(ListenerCalls listener) {
        calls.add(listener);
    }

    void remove(ListenerCalls listener) {
        calls.remove(listener);
    }

    /** No listener is called from now on. */
    void end() {
        calls.forEach(ListenerCalls::end);
    }

    /** After the end: waits for the calls that are under way, as {@link ListenerCalls#awaitEnd} does. */
    void awaitEnd() {
        calls.forEach(ListenerCalls::awaitEnd);
    }
}
