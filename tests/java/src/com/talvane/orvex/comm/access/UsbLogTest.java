package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.RejectedExecutionException;
import java.util.function.Consumer;
import java.util.logging.Handler;
import java.util.logging.Level;
import java.util.logging.LogRecord;
import java.util.logging.Logger;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** What the log gets, by its name and with its levels; FINE is what java.util.logging calls DEBUG. */
@Tag("memory")
class UsbLogTest extends AccessTest {
    private static final Logger LOGGER = Logger.getLogger("com.talvane.orvex.comm.access");
    private static final int BRIEF = 20;

    private final List<LogRecord> records = new CopyOnWriteArrayList<>();
    private final List<Handler> handlers = new ArrayList<>();

    @BeforeEach
    void listen() {
        LOGGER.setUseParentHandlers(false);
        LOGGER.setLevel(Level.FINE);
        handle(records::add);
    }

    /** Calls {@code work} with each message, without a look at its level. */
    private void handle(Consumer<LogRecord> work) {
        Handler handler = new Handler() {
            @Override
            public void publish(LogRecord entry) {
                work.accept(entry);
            }

            @Override
            public void flush() {
                // nothing is kept
            }

            @Override
            public void close() {
                // nothing is open
            }
        };
        handlers.add(handler);
        LOGGER.addHandler(handler);
    }

    @AfterEach
    void listenNoMore() {
        handlers.forEach(LOGGER::removeHandler);
        LOGGER.setLevel(null);
        LOGGER.setUseParentHandlers(true);
    }

    private List<String> lines() {
        return records.stream().map(entry -> entry.getLevel() + " " + entry.getMessage()).toList();
    }

    /** What was logged by some work. */
    private List<String> linesOf(ThrowingWork work) throws Exception {
        records.clear();
        work.run();
        return lines();
    }

    /** Work of a test. */
    @FunctionalInterface
    private interface ThrowingWork {
        void run() throws Exception;
    }

    @Test
    void theSessionAndWhatItFindsAreTold() throws Exception {
        bus.unplug("composite");
        session();
        List<String> lines = linesOf(() -> {
            closeSession();
            try (UsbSession session = UsbSession.open()) {
                session.list(VENDOR, OTHER_VENDOR);
                assertThrows(UsbBusyException.class, UsbSession::open);
            }
        });
        assertTrue(lines.get(1).matches("FINE session opened: library 3\\.47, \\w.* \\S+, Java \\S+"), lines.get(1));
        assertEquals(
                List.of("FINE session closed", lines.get(1),
                        "FINE found: 6A5C:1001 BENCH00001 (Talvane, Bench Tool)",
                        "FINE found: 6A5C:1002 PAIR0002 (Talvane, Pair Tool)",
                        "FINE open a session: -115: a session is already open", "FINE session closed"),
                sortedDevices(lines));
    }

    /** The devices in the order of their names: the bus has one of its own. */
    private static List<String> sortedDevices(List<String> lines) {
        List<String> sorted = new ArrayList<>(lines);
        sorted.subList(2, 4).sort(null);
        return sorted;
    }

    @Test
    void whatComesAndLeavesIsTold() throws Exception {
        UsbDeviceList list = list();
        assertEquals(List.of("FINE left: 6A5C:1001 BENCH00001 (Talvane, Bench Tool), absent"), linesOf(() -> {
            bus.unplug("bench");
            await("it left", () -> !unchecked(list::update).left().isEmpty());
            list.update();
        }));
        assertEquals(
                List.of("FINE came back: 6A5C:1001 BENCH00001 (Talvane, Bench Tool)",
                        "FINE found: 6A5C:1001 SPARE005 (Talvane, Spare Tool)"),
                linesOf(() -> {
                    bus.plug("bench");
                    await("it is back", () -> !unchecked(list::update).came().isEmpty());
                    bus.plug("spare");
                    await("it came", () -> !unchecked(list::update).came().isEmpty());
                }));
    }

    @Test
    void opensClosesAndResetsAreTold() throws Exception {
        bus.plug("modem");
        UsbDevice modem = device("MODEM006");
        UsbDevice bench = device(BENCH);
        assertEquals(
                List.of("FINE open BENCH00001: done", "FINE reset BENCH00001: done", "FINE close BENCH00001: done",
                        "FINE open MODEM006: -158: the device's class is not supported"),
                linesOf(() -> {
                    bench.open();
                    bench.reset();
                    bench.close();
                    bench.close();
                    assertThrows(UsbException.class, modem::open);
                }));
        bench.open();
        assertEquals(List.of("FINE close BENCH00001: done", "FINE session closed"), linesOf(this::closeSession));
    }

    @Test
    void aCloseThatFindsNothingToCloseIsTold() throws Exception {
        UsbDevice bench = open(BENCH);
        UsbDeviceList list = list();
        bus.unplug("bench");
        await("it left", () -> !unchecked(list::update).left().isEmpty());
        bus.plug("bench");
        await("it is back", () -> !unchecked(list::update).came().isEmpty());
        assertEquals(
                List.of("FINE close BENCH00001: -109: the device is not open, or has no such endpoint number"),
                linesOf(bench::close));
    }

    @Test
    void transfersAreToldWhenTheyFail() throws Exception {
        UsbDevice bench = open(BENCH);
        byte[] bytes = new byte[64];
        assertEquals(
                List.of("FINE read from endpoint 0x84 of BENCH00001: -150: the transfer timed out",
                        "FINE control request to BENCH00001: -9: pipe error (the device stalled)"),
                linesOf(() -> {
                    write(bench, 0x01, bytes);
                    read(bench, 0x81, bytes);
                    assertThrows(UsbTimeoutException.class, () -> bench.readBulk(0x84, bytes, 0, 64, BRIEF));
                    assertThrows(UsbStalledException.class, () -> bench.readControl(0xC0, 3, 0, 0, 4, AMPLE));
                }));
    }

    @Test
    void aDeviceThatCannotBeReadIsWarnedOfOnce() throws Exception {
        bus.change("loader", "{\"hostFailures\": {\"open\": -3}}");
        bus.plug("locked");
        UsbSession session = UsbSession.open();
        try (session) {
            UsbDeviceList list = session.list(VENDOR);
            assertEquals(List.of(unreadable("100A")), warnings());
            bus.plug("loader");
            await("it is found", () -> !unchecked(list::update).came().isEmpty());
            assertEquals(1, warnings().size(), "one that was plugged in has a moment to become readable");
            await("it is warned of", () -> unchecked(list::update).isEmpty() && warnings().size() > 1);
        }
        assertEquals(List.of(unreadable("100A"), unreadable("1005")), warnings());
    }

    private static String unreadable(String product) {
        return "WARNING 6A5C:" + product + " could not be opened to read its texts; orvex-usb doctor tells why";
    }

    private List<String> warnings() {
        return lines().stream().filter(line -> line.startsWith("WARNING")).toList();
    }

    @Test
    void whatAListenerThrowsIsToldWithItsCause() throws Exception {
        UsbDevice bench = open(BENCH);
        RuntimeException mistake = new IllegalArgumentException("a mistake in a listener");
        ExecutorService executor = Executors.newSingleThreadExecutor(work -> {
            Thread thread = new Thread(work);
            thread.setUncaughtExceptionHandler((where, what) -> { });
            return thread;
        });
        bench.onData(0x81, 64, bytes -> {
            throw mistake;
        }, executor);
        bus.feed("bench", 0x81, pattern(5));
        await("it is told", () -> lines().contains("WARNING a listener has thrown an exception"));
        assertSame(mistake, records.get(records.size() - 1).getThrown());
        executor.shutdown();
    }

    @Test
    void anExecutorThatRefusesIsTold() throws Exception {
        UsbDeviceList list = list();
        RejectedExecutionException refusal = new RejectedExecutionException();
        session().onChange(change -> { }, task -> {
            Thread.currentThread().setUncaughtExceptionHandler((where, what) -> { });
            throw refusal;
        });
        bus.plug("spare");
        await("it is told", () -> lines().contains(
                "WARNING the executor of a listener refuses its calls, so it gets no more"));
        assertTrue(list.find("SPARE005").isPresent());
    }

    @Test
    void whatADeviceCallsItselfEndsNoLine() throws Exception {
        bus.change("spare", "{\"serial\": \"S\\n1\\u001B[31m{0}%s\", \"product\": \"P\\r\\nSEVERE all is lost\"}");
        bus.plug("spare");
        list();
        UsbDevice hostile = list().devices().stream().filter(device -> device.info().productId() == 0x1001
                && device.info().product().contains("lost")).findFirst().orElseThrow();
        hostile.open();
        assertThrows(UsbTimeoutException.class, () -> hostile.readBulk(0x81, new byte[64], 0, 64, BRIEF));
        List<String> told = lines().stream().filter(line -> line.contains("S?1")).toList();
        assertEquals(
                List.of("FINE found: 6A5C:1001 S?1?[31m{0}%s (Talvane, P??SEVERE all is lost)",
                        "FINE open S?1?[31m{0}%s: done",
                        "FINE read from endpoint 0x81 of S?1?[31m{0}%s: -150: the transfer timed out"),
                told);
        assertTrue(records.stream().allMatch(entry -> entry.getParameters() == null));
        assertFalse(lines().toString().contains("\n"));
    }

    /** A handler may be anything, also a thread that uses the session or the endpoint and is waited for. */
    @Test
    void aHandlerIsCalledWithoutALock() throws Exception {
        UsbDevice hid = pluggedHid().open();
        UsbDevice bench = open(BENCH);
        List<String> told = new CopyOnWriteArrayList<>();
        ThreadLocal<Boolean> isInside = ThreadLocal.withInitial(() -> false);
        handle(entry -> unchecked(() -> {
            if (!isInside.get() && told.add(entry.getMessage())) {
                result(onAnotherThread(() -> {
                    isInside.set(true);
                    session().list(VENDOR, OTHER_VENDOR).devices();
                    attempt(() -> bench.writeControl(0x40, 1, 0, 0, new byte[1], AMPLE));
                    attempt(() -> bench.readBulk(0x84, new byte[64], 0, 64, 1));
                    attempt(() -> hid.readReports(new byte[64], 0, 64, 1));
                    isInside.set(false);
                    return 0;
                }));
            }
            return null;
        }));
        UsbDeviceList list = list();
        bus.plug("spare");
        await("it came", () -> !unchecked(list::update).came().isEmpty());
        attempt(() -> bench.readBulk(0x84, new byte[64], 0, 64, BRIEF));
        bus.unplug("hid");
        assertThrows(UsbException.class, () -> hid.readReports(new byte[64], 0, 64, AMPLE));
        bench.close();
        assertEquals(List.of("found: 6A5C:1001 SPARE005 (Talvane, Spare Tool)",
                "read from endpoint 0x84 of BENCH00001: -150: the transfer timed out",
                "left: 6A5C:1020 HIDT0021 (Talvane, HID Tool), absent"), told.subList(0, 3));
        assertEquals("close BENCH00001: done", told.get(told.size() - 1));
    }

    private static void attempt(ThrowingWork transfer) {
        try {
            transfer.run();
        } catch (UsbException | IllegalStateException e) {
            // That it has come back is enough.
        } catch (Exception e) {
            throw new AssertionError(e);
        }
    }

    @Test
    void aHandlerThatThrowsEndsNothing() throws Exception {
        handle(entry -> {
            throw new IllegalStateException("no room for the log");
        });
        UsbDevice bench = open(BENCH);
        assertTrue(bench.isOpen());
        assertEquals(1, write(bench, 0x01, new byte[1]));
        assertThrows(UsbTimeoutException.class, () -> bench.readBulk(0x84, new byte[64], 0, 64, BRIEF));
        bench.close();
        closeSession();
        UsbSession.open().close();
    }

    @ParameterizedTest
    @ValueSource(strings = {"INFO", "WARNING", "OFF"})
    void nothingNormalIsToldAboveDebug(String level) throws Exception {
        LOGGER.setLevel(Level.parse(level));
        Log.debug(() -> {
            throw new AssertionError("a text that nobody reads");
        });
        UsbDevice bench = open(BENCH);
        assertThrows(UsbTimeoutException.class, () -> bench.readBulk(0x84, new byte[64], 0, 64, BRIEF));
        bench.close();
        closeSession();
        assertEquals(List.of(), lines());
    }
}
