package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.List;
import java.util.concurrent.RejectedExecutionException;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** The calls of one listener, with an executor that does nothing by itself. */
@Tag("memory")
class ListenerCallsTest {
    private final Deque<Runnable> tasks = new ArrayDeque<>();
    private final List<String> told = new ArrayList<>();
    private final List<Throwable> reported = new ArrayList<>();
    private final ListenerCalls calls = new ListenerCalls(tasks::add, 10);

    ListenerCallsTest() {
        Thread.currentThread().setUncaughtExceptionHandler((thread, e) -> reported.add(e));
    }

    @AfterEach
    void removeTheHandler() {
        Thread.currentThread().setUncaughtExceptionHandler(null);
    }

    @Test
    void eachCallIsATaskAndTheNextOneIsAskedForWhenItIsDone() {
        assertTrue(calls.post(() -> told.add("one")));
        assertTrue(calls.post(() -> told.add("two")));
        assertEquals(1, tasks.size());
        tasks.remove().run();
        assertEquals(List.of("one"), told);
        assertEquals(1, tasks.size());
        tasks.remove().run();
        assertEquals(List.of("one", "two"), told);
        assertEquals(0, tasks.size());
    }

    @Test
    void whatAListenerThrowsIsReportedAndTheNextCallComes() {
        Error problem = new AssertionError("a mistake in a listener");
        calls.post(() -> {
            throw problem;
        });
        calls.post(() -> told.add("two"));
        tasks.remove().run();
        assertEquals(List.of(problem), reported);
        tasks.remove().run();
        assertEquals(List.of("two"), told);
    }

    @Test
    void aHandlerThatThrowsEndsNothing() {
        Thread.currentThread().setUncaughtExceptionHandler((thread, e) -> {
            throw new IllegalStateException(e);
        });
        calls.post(() -> {
            throw new AssertionError();
        });
        calls.post(() -> told.add("two"));
        tasks.remove().run();
        tasks.remove().run();
        assertEquals(List.of("two"), told);
    }

    @Test
    void whatHasNotBeenToldAtTheEndIsDropped() {
        calls.post(() -> told.add("one"));
        calls.end();
        calls.awaitEnd();
        assertFalse(calls.post(() -> told.add("two")));
        tasks.remove().run();
        assertEquals(List.of(), told);
        assertEquals(0, tasks.size());
    }

    @Test
    void aCallMayEndItsOwn() {
        calls.post(() -> {
            calls.end();
            calls.awaitEnd();
            told.add("one");
        });
        tasks.remove().run();
        assertEquals(List.of("one"), told);
    }

    @Test
    void anExecutorThatRefusesIsReportedAndEndsTheCalls() {
        RejectedExecutionException refusal = new RejectedExecutionException();
        ListenerCalls refused = new ListenerCalls(task -> {
            throw refusal;
        }, 10);
        refused.post(() -> told.add("one"));
        assertEquals(List.of(refusal), reported);
        assertFalse(refused.post(() -> told.add("two")));
    }

    @Test
    void anExecutorThatRefusesAfterTheEndIsNoNews() {
        ListenerCalls[] ended = new ListenerCalls[1];
        ended[0] = new ListenerCalls(task -> {
            ended[0].end();
            throw new RejectedExecutionException();
        }, 10);
        ended[0].post(() -> told.add("one"));
        assertEquals(List.of(), reported);
    }
}
