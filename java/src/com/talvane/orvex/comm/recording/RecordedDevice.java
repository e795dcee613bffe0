package com.talvane.orvex.comm.recording;

import java.util.Collection;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;

/**
 * A device of a recording, and its transfers that are not written yet.
 *
 * <p>Threads: any.
 */
final class RecordedDevice {
    private static final int MOST_ON_BUS = 127;

    private final int number;
    private final Reports reports;
    /** By endpoint. */
    private final Map<Integer, Flight> running = new ConcurrentHashMap<>();
    /** By thread the transfer after which it may ask the device what has happened. */
    private final Map<Thread, Exchange> doubtful = new ConcurrentHashMap<>();

    /**
     * How a HID device gets and gives reports.
     *
     * @param inEndpoint      where they come from
     * @param outEndpoint     where they go; 0 when they are requests
     * @param interfaceNumber for such a request
     * @param size            in bytes, when a call gives none
     * @param fill            pads the last report of a call that does not say with what
     */
    record Reports(int inEndpoint, int outEndpoint, int interfaceNumber, int size, int fill) {
    }

    /** A transfer under way. */
    static final class Flight {
        final long began;
        private volatile boolean isCancelled;

        private Flight(long began) {
            this.began = began;
        }

        boolean isCancelled() {
            return isCancelled;
        }
    }

    /**
     * A device that was not recorded before.
     *
     * @param number  of devices before it
     * @param reports null when it is no HID device
     */
    RecordedDevice(int number, Reports reports) {
        this.number = number;
        this.reports = reports;
    }

    /** An invented one, from 1 on: the raw calls tell none. */
    int bus() {
        return 1 + number / MOST_ON_BUS;
    }

    /** Likewise invented, 1 to 127, and with the bus of no other device. */
    int address() {
        return 1 + number % MOST_ON_BUS;
    }

    /** Null when it is no HID device. */
    Reports reports() {
        return reports;
    }

    Flight begin(int endpoint, long now) {
        Flight flight = new Flight(now);
        running.put(endpoint, flight);
        return flight;
    }

    void end(int endpoint, Flight flight) {
        running.remove(endpoint, flight);
    }

    /** Somebody ends the transfer at an endpoint, if there is one. */
    void cancel(int endpoint) {
        cancel(running.get(endpoint));
    }

    /** Somebody ends all transfers. */
    void cancelAll() {
        running.values().forEach(RecordedDevice::cancel);
    }

    private static void cancel(Flight flight) {
        if (flight != null) {
            flight.isCancelled = true;
        }
    }

    /** This thread may find out what became of its transfer. */
    void keepDoubtful(Exchange exchange) {
        doubtful.put(Thread.currentThread(), exchange);
    }

    /** The transfer about which this thread may have asked; null when there is none. */
    Exchange takeDoubtful() {
        return doubtful.remove(Thread.currentThread());
    }

    /** Those of all threads. */
    Collection<Exchange> takeAllDoubtful() {
        List<Exchange> all = List.copyOf(doubtful.values());
        doubtful.clear();
        return all;
    }
}
