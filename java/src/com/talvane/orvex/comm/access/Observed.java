package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;
import java.util.function.IntSupplier;
import java.util.function.Supplier;
import jdk.jfr.FlightRecorder;

/**
 * Calls on the bus, of which a flight recorder gets an event each, and the log those that fail. Without a recording no
 * event is made; a Java runtime without the module jdk.jfr has no recordings.
 *
 * <p>Threads: any.
 */
final class Observed {
    private static final String OK = "OK";
    private static final String CLOSED = "CLOSED";
    private static final boolean HAS_RECORDER = hasRecorder();

    /** A call on the bus. */
    @FunctionalInterface
    interface Call {
        int make() throws UsbException;
    }

    /** How many devices the update of a list has found to be there again or anew, and to be gone. */
    record Found(int came, int left) {
    }

    private Observed() {
    }

    private static boolean hasRecorder() {
        try {
            FlightRecorder.isInitialized();
            return true;
        } catch (LinkageError e) {
            return false;
        }
    }

    /** The classes of the events wait for the first recording: loading one starts the recorder, which takes 0.1 s. */
    private static boolean mayBeRecorded() {
        return HAS_RECORDER && FlightRecorder.isInitialized();
    }

    /**
     * Makes a transfer and returns the bytes that it moved.
     *
     * @param kind     pipe, control or reports
     * @param target   the open device
     * @param endpoint its address, or the direction bit alone
     * @param asked    the number of bytes to be moved
     * @param transfer makes it; throws IllegalStateException when the device is closed meanwhile
     */
    static int transfer(String kind, Target target, int endpoint, int asked, Call transfer) throws UsbException {
        Flight flight = mayBeRecorded() ? TransferEvent.start(kind, target.label(), endpoint, asked) : Flight.NONE;
        try {
            int moved = transfer.make();
            flight.end(OK, 0, moved, 0);
            return moved;
        } catch (UsbException e) {
            throw failed(flight, e);
        } catch (IllegalStateException e) {
            flight.end(CLOSED, UsbAccessCode.NOT_OPEN.code(), 0, 0);
            throw e;
        }
    }

    private static UsbException failed(Flight flight, UsbException failure) {
        flight.end(failure.code().name(), failure.code().code(), failure.moved(), 0);
        Log.debug(failure::getMessage);
        return failure;
    }

    /**
     * Opens or resets a device.
     *
     * @param name   open or reset
     * @param device the name of the device
     * @param call   does it
     */
    static void device(String name, String device, Call call) throws UsbException {
        Flight flight = startDevice(name, device);
        try {
            flight.end(OK, call.make(), 0, 0);
        } catch (UsbException e) {
            throw failed(flight, e);
        }
        Log.debug(() -> name + " " + device + ": done");
    }

    /** Closes a device with a raw call. */
    static void close(String device, IntSupplier call) {
        Flight flight = startDevice("close", device);
        int result = call.getAsInt();
        flight.end(outcome(result), result, 0, 0);
        Log.debug(() -> "close " + device + ": " + (result == 0 ? "done" : UsbAccessCode.describe(result)));
    }

    private static Flight startDevice(String name, String device) {
        return mayBeRecorded() ? DeviceEvent.start(name, device) : Flight.NONE;
    }

    /** Updates a list with a raw call, and finds out what is new in it. Returns the result of the raw call. */
    static int update(IntSupplier call, Supplier<Found> news) {
        Flight flight = mayBeRecorded() ? ListEvent.start() : Flight.NONE;
        int result = call.getAsInt();
        Found found = news.get();
        flight.end(outcome(result), result, found.came(), found.left());
        return result;
    }

    private static String outcome(int result) {
        return result >= 0 ? OK : UsbAccessCode.of(result).orElse(UsbAccessCode.OTHER).name();
    }
}
