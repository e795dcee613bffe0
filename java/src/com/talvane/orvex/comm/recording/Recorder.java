package com.talvane.orvex.comm.recording;

import com.talvane.orvex.comm.UsbAccessCode;
import com.talvane.orvex.comm.recording.RecordedDevice.Flight;
import com.talvane.orvex.comm.recording.RecordedDevice.Reports;
import java.io.IOException;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;
import java.util.function.IntSupplier;

/**
 * A recording: makes raw calls and writes the transfers that they are on the bus. A file that cannot be written any
 * more, such as on a full disk, ends the recording and changes no call.
 *
 * <p>The raw calls tell 0 bytes after a stall as well as after an empty packet. So such a transfer is written when its
 * thread has made the next one: that may be the question how the device is. When nobody asks, a read has got an empty
 * packet, and everything else was stalled.
 *
 * <p>Threads: any, one transfer at a time on an endpoint.
 */
public final class Recorder {
    private static final int SETUP_BYTES = 8;
    private static final int IN = 0x80;
    private static final int STATUS_OF_DEVICE = 0x80;
    private static final int STATUS_OF_ENDPOINT = 0x82;
    /** Of an address; an endpoint has none of these bits. */
    private static final int NO_ENDPOINT = 0x70;

    private final CaptureFile file;
    private final Privacy privacy;
    private final Consumer<IOException> failed;
    private final Map<Place, RecordedDevice> devices = new ConcurrentHashMap<>();
    private final long startedAt = TimeUnit.MILLISECONDS.toNanos(System.currentTimeMillis());
    private final long startedNanos = System.nanoTime();
    private volatile IOException failure;

    /** A place in a raw list. */
    private record Place(int list, int index) {
    }

    /**
     * What has been recorded so far, as the commands of the simulator count it.
     *
     * @param devices   the number of devices
     * @param transfers the number of transfers, requests for descriptors included
     * @param bytes     the number of bytes that they have moved
     */
    public record Counts(int devices, long transfers, long bytes) {
    }

    /**
     * Begins a recording.
     *
     * @param path           the file, which is replaced when it is there
     * @param withoutSerials whether serial numbers are made unreadable
     * @param withoutData    whether the data of all but standard requests are left out
     * @param failed         is told, once, why the recording has ended early; in the call that is recorded, so it
     *                       calls nothing that may wait for a transfer
     * @throws IOException when the file cannot be created
     */
    public Recorder(Path path, boolean withoutSerials, boolean withoutData, Consumer<IOException> failed)
            throws IOException {
        privacy = new Privacy(withoutSerials, withoutData);
        this.failed = failed;
        file = new CaptureFile(path);
        attempt(() -> file.begin(startedAt));
    }

    @FunctionalInterface
    private interface Step {
        void run() throws IOException;
    }

    private void attempt(Step step) {
        try {
            step.run();
        } catch (IOException e) {
            failure = e;
            failed.accept(e);
        }
    }

    private long now() {
        return startedAt + System.nanoTime() - startedNanos;
    }

    /**
     * Writes the descriptors of an open device, unless they are there already. They are asked for with requests at
     * endpoint 0, of a second at most; a HID device, which takes none, gets those that were read when it was listed.
     * Beside this no control request of the device runs, nor a call that changes lists.
     *
     * @param list  the raw handle of its list
     * @param index its place there
     */
    public void describe(int list, int index) {
        Place place = new Place(list, index);
        if (!devices.containsKey(place)) {
            Descriptors descriptors = new Descriptors(list, index, this::now);
            RecordedDevice device = new RecordedDevice(devices.size(), descriptors.reports());
            privacy.learn(descriptors.serial());
            descriptors.exchanges(device).forEach(this::write);
            devices.put(place, device);
        }
    }

    /** Makes a transfer at a bulk or interrupt endpoint. */
    int pipe(int list, int index, int kind, int endpoint, int length, byte[] buffer, IntSupplier call) {
        RecordedDevice device = devices.get(new Place(list, index));
        if (device == null || lacks(buffer, length) || (endpoint & NO_ENDPOINT) != 0) {
            return call.getAsInt();
        }
        Flight flight = device.begin(endpoint, now());
        int result = call.getAsInt();
        device.end(endpoint, flight);
        if (isOnBus(result)) {
            int none = (endpoint & IN) != 0 ? Exchange.COMPLETED : Exchange.STALLED;
            end(device, flight, result, none, new Exchange(device, kind, endpoint, null, length,
                    data(buffer, 0, endpoint, length, result), Math.max(result, 0), 0, flight.began, now()));
        }
        return result;
    }

    /** Makes a control transfer: a setup packet, and its data behind it. */
    int control(int list, int index, int direction, int timeout, byte[] buffer, IntSupplier call) {
        RecordedDevice device = devices.get(new Place(list, index));
        if (device == null || lacks(buffer, SETUP_BYTES)) {
            return call.getAsInt();
        }
        byte[] setup = Arrays.copyOf(buffer, SETUP_BYTES);
        int length = (setup[6] & 0xFF) | (setup[7] & 0xFF) << 8;
        Flight flight = device.begin(0, now());
        int result = call.getAsInt();
        device.end(0, flight);
        if (isOnBus(result)) {
            long ended = now();
            boolean timeIsOver = timeout > 0 && ended - flight.began >= TimeUnit.MILLISECONDS.toNanos(timeout);
            int none = timeIsOver ? Exchange.CANCELLED : Exchange.STALLED;
            end(device, flight, result, none, new Exchange(device, Exchange.CONTROL, direction, setup, length,
                    data(buffer, SETUP_BYTES, direction, length, result), Math.max(result, 0), 0, flight.began,
                    ended));
        }
        return result;
    }

    /** What a call moves from or to its buffer; a part that the buffer does not have counts as zeroes. */
    private static byte[] data(byte[] buffer, int from, int endpoint, int length, int result) {
        int count = (endpoint & IN) != 0 ? Math.max(result, 0) : length;
        return Arrays.copyOfRange(buffer, from, from + count);
    }

    private static boolean lacks(byte[] buffer, int length) {
        return buffer == null || length < 0 || buffer.length < length;
    }

    /** Whether a call has reached the device, or would have if that were still there. */
    private static boolean isOnBus(int result) {
        return result != UsbAccessCode.BAD_ARGUMENT.code() && result != UsbAccessCode.NOT_OFFERED.code();
    }

    /** Writes a transfer, or puts that off. */
    private void end(RecordedDevice device, Flight flight, int result, int statusOfNone, Exchange exchange) {
        boolean isQuestion = isQuestion(exchange);
        settle(device.takeDoubtful(), isQuestion ? exchange : null, result);
        boolean isNone = result == 0 && exchange.asked() > 0;
        int status = isNone ? statusOfNone(flight, statusOfNone)
                : result >= 0 ? Exchange.COMPLETED : status(result, isQuestion ? Exchange.GONE : Exchange.FAILED);
        boolean isDoubtful = isNone ? !flight.isCancelled() : status == Exchange.FAILED;
        if (isDoubtful && !isQuestion) {
            device.keepDoubtful(exchange.withStatus(status));
        } else {
            write(exchange.withStatus(status));
        }
    }

    private static int statusOfNone(Flight flight, int other) {
        return flight.isCancelled() ? Exchange.CANCELLED : other;
    }

    /** Of a negative result; {@code other} when that does not tell more. */
    private static int status(int result, int other) {
        if (result == UsbAccessCode.TIMED_OUT.code()) {
            return Exchange.CANCELLED;
        }
        return result == UsbAccessCode.NOT_OPEN.code() ? Exchange.GONE : other;
    }

    /** A request for the status of the device or of an endpoint. */
    private static boolean isQuestion(Exchange exchange) {
        byte[] setup = exchange.setup();
        int type = setup == null ? 0 : setup[0] & 0xFF;
        return (type == STATUS_OF_DEVICE || type == STATUS_OF_ENDPOINT) && setup[1] == 0;
    }

    /** Writes the transfer before; a question may have told what became of it. */
    private void settle(Exchange before, Exchange question, int result) {
        if (before == null) {
            return;
        }
        int status = before.status();
        if (question != null && result < 0) {
            status = Exchange.GONE;
        } else if (question != null && result > 0 && (question.setup()[0] & 0xFF) == STATUS_OF_ENDPOINT) {
            boolean isHalted = (question.data()[0] & 1) != 0;
            status = isHalted ? Exchange.STALLED : before.isIn() ? Exchange.COMPLETED : Exchange.FAILED;
        }
        write(before.withStatus(status));
    }

    /**
     * Makes an interrupt write in packets of one size, the last of them padded, of which each is a transfer. When the
     * call fails, nobody knows how many have been sent: the first one stands for all.
     *
     * @param packetSize 0 for the device's own
     */
    int writePackets(int list, int index, int endpoint, int length, byte[] buffer, int packetSize, int fill,
            IntSupplier call) {
        RecordedDevice device = devices.get(new Place(list, index));
        if (device == null || lacks(buffer, length)
                || (device.reports() == null && (packetSize == 0 || (endpoint & NO_ENDPOINT) != 0))) {
            return pipe(list, index, Exchange.INTERRUPT, endpoint, length, buffer, call);
        }
        Reports reports = device.reports();
        int size = packetSize > 0 ? packetSize : reports.size();
        int pad = packetSize > 0 ? fill : reports.fill();
        long began = now();
        int result = call.getAsInt();
        if (isOnBus(result) && length > 0) {
            int failure = reports != null ? Exchange.STALLED : Exchange.FAILED;
            int status = result >= 0 ? Exchange.COMPLETED : status(result, failure);
            long ended = now();
            for (int at = 0; at < Math.max(result, 1); at += size) {
                byte[] packet = Arrays.copyOfRange(buffer, at, at + size);
                Arrays.fill(packet, Math.min(length - at, size), size, (byte) pad);
                write(packet(device, endpoint, packet, status, began, ended));
            }
        }
        return result;
    }

    private static Exchange packet(RecordedDevice device, int endpoint, byte[] packet, int status, long began,
            long ended) {
        Reports reports = device.reports();
        int moved = status == Exchange.COMPLETED ? packet.length : 0;
        int to = reports == null ? endpoint : reports.outEndpoint();
        if (to == 0) {
            byte[] setReport = {0x21, 9, 0, 2, (byte) reports.interfaceNumber(), 0, (byte) packet.length,
                    (byte) (packet.length >> 8)};
            return new Exchange(device, Exchange.CONTROL, 0, setReport, packet.length, packet, moved, status, began,
                    ended);
        }
        return new Exchange(device, Exchange.INTERRUPT, to, null, packet.length, packet, moved, status, began, ended);
    }

    /**
     * Makes an interrupt read. That of a HID device gets reports, each of which is a transfer; one that finds none is
     * not recorded, because the system reads reports all the time.
     *
     * @param packetSize the size of its reports, 0 for the device's own
     */
    int readPackets(int list, int index, int endpoint, int length, byte[] buffer, int packetSize, IntSupplier call) {
        RecordedDevice device = devices.get(new Place(list, index));
        if (device == null || device.reports() == null || lacks(buffer, length)) {
            return pipe(list, index, Exchange.INTERRUPT, endpoint, length, buffer, call);
        }
        int size = packetSize > 0 ? packetSize : device.reports().size();
        long began = now();
        int result = call.getAsInt();
        for (int at = 0; at < result; at += size) {
            byte[] report = Arrays.copyOfRange(buffer, at, Math.min(at + size, result));
            write(new Exchange(device, Exchange.INTERRUPT, device.reports().inEndpoint(), null, report.length, report,
                    report.length, Exchange.COMPLETED, began, now()));
        }
        return result;
    }

    /** Somebody cancels the transfer at an endpoint. */
    void cancel(int list, int index, int endpoint) {
        RecordedDevice device = devices.get(new Place(list, index));
        if (device != null) {
            device.cancel(endpoint);
        }
    }

    /** Somebody closes a device. */
    void cancelAll(int list, int index) {
        RecordedDevice device = devices.get(new Place(list, index));
        if (device != null) {
            device.cancelAll();
        }
    }

    private void write(Exchange exchange) {
        attempt(() -> file.write(privacy.apply(exchange)));
    }

    /**
     * Tells what has been recorded.
     *
     * @return the counts so far
     */
    public Counts counts() {
        return file.counts();
    }

    /**
     * Ends the recording. Ending it again does nothing.
     *
     * @throws IOException when it had to end earlier, each time
     */
    public void close() throws IOException {
        devices.values().forEach(device -> device.takeAllDoubtful().forEach(this::write));
        attempt(file::close);
        if (failure != null) {
            throw new IOException("the recording has ended early: " + failure.getMessage(), failure);
        }
    }
}
