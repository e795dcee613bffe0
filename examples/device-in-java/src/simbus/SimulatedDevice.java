package simbus;

import java.io.BufferedReader;
import java.io.EOFException;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.net.StandardProtocolFamily;
import java.net.UnixDomainSocketAddress;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.Channels;
import java.nio.channels.SocketChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.HexFormat;
import java.util.Queue;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * A simulated USB device whose behaviour is written in Java, and the connection over which this program answers for it.
 *
 * <p>Derive from it, override the handlers that the device needs, and call {@link #run}. The bus is that of
 * {@code simbus run}, or that of the control socket which the variable SIMBUS_SOCKET names. All methods but
 * {@link #close} are for one thread, which is also the one that calls the handlers. The class needs nothing but the JDK.
 */
public abstract class SimulatedDevice implements AutoCloseable {
    /** A control request, as the host sends it; all values are unsigned. */
    public record Setup(int requestType, int request, int value, int index, int length) {
        static Setup of(byte[] bytes) {
            ByteBuffer setup = ByteBuffer.wrap(bytes).order(ByteOrder.LITTLE_ENDIAN);
            return new Setup(setup.get() & 0xFF, setup.get() & 0xFF, setup.getShort() & 0xFFFF,
                    setup.getShort() & 0xFFFF, setup.getShort() & 0xFFFF);
        }
    }

    /** What a handler throws that does not answer a request. */
    public static final class NoAnswer extends Exception {
        private static final long serialVersionUID = 1;
        /** The request stalls. */
        public static final NoAnswer STALL = new NoAnswer("stall");
        /** The request waits until the host cancels it. */
        public static final NoAnswer SILENCE = new NoAnswer("silent");

        private NoAnswer(String name) {
            super(name, null, false, false);
        }
    }

    private static final byte[] NOTHING = {};

    private final String id;
    private final boolean isNew;
    private final SocketChannel channel = SocketChannel.open(StandardProtocolFamily.UNIX);
    private final BufferedReader lines = new BufferedReader(Channels.newReader(channel, StandardCharsets.UTF_8));
    private final Queue<String> events = new ArrayDeque<>();
    private String handled = ""; // the control request or OUT transfer of this moment, as a member of a JSON object

    /**
     * Connects to the bus.
     *
     * @param id the device's name on the bus
     * @param description a new device as in a scenario, a JSON object, which is plugged in by {@link #run}; null for one
     *     that the bus has
     * @throws IOException if there is no bus
     * @throws IllegalStateException if the bus refuses the device
     */
    protected SimulatedDevice(String id, String description) throws IOException {
        this.id = id;
        isNew = description != null;
        String bus = System.getenv("SIMBUS_BUS");
        channel.connect(UnixDomainSocketAddress.of(Path.of(bus != null ? bus : System.getenv("SIMBUS_SOCKET"))));
        if (isNew) {
            ask("{\"op\":\"add\",\"device\":{\"id\":\"" + id + "\",\"plugged\":false}}");
            request("change", ",\"set\":" + description);
        }
        request("serve", "");
    }

    /** Returns the bytes for the host, at most {@code setup.length()}; null for a request that brings data. */
    protected byte[] handleControl(Setup setup, byte[] data) throws NoAnswer {
        throw NoAnswer.STALL;
    }

    /** Takes the data of an OUT transfer. */
    protected void handleOut(int address, byte[] data) throws NoAnswer {}

    /** Returns the data for an IN transfer of {@code length} bytes that waits; null when they will be fed later. */
    protected byte[] handleIn(int address, int length) throws NoAnswer {
        return null;
    }

    /** Is told "plugged", "unplugged", "reset", "configuration" and so on, the events of the control socket. */
    protected void handleEvent(String event) {}

    /**
     * Adds data to be read from an IN endpoint, whose address has bit 7 set. Nothing comes of it when the control
     * request or OUT transfer that is being handled has ended meanwhile.
     */
    protected final void feed(int address, byte[] data) {
        String hex = HexFormat.of().formatHex(data);
        request("feed", ",\"address\":" + address + ",\"data\":\"" + hex + '"' + handled);
    }

    /** Leaves the bus and comes back with these keys of its description changed; a JSON object. */
    protected final void reenumerate(String changes) {
        request("unplug", "");
        request("change", ",\"set\":" + changes);
        request("plug", "");
    }

    /**
     * Sends any request of the control socket, a JSON object in one line.
     *
     * @return the response, a line of JSON
     * @throws IllegalStateException with the reason, if the bus refuses it
     * @throws UncheckedIOException if the bus has ended
     */
    protected final String ask(String request) {
        try {
            ByteBuffer bytes = StandardCharsets.UTF_8.encode(request + '\n');
            while (bytes.hasRemaining()) {
                channel.write(bytes);
            }
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
        String line = nextLine();
        while (value(line, "event") != null) {
            events.add(line);
            line = nextLine();
        }
        if (!"true".equals(value(line, "ok"))) {
            String error = value(line, "error");
            throw new IllegalStateException(events.stream().filter(event -> value(event, "event").equals("dismissed"))
                    .map(event -> value(event, "error")).findFirst().orElse(error));
        }
        return line;
    }

    /**
     * Answers until the bus or the connection ends.
     *
     * @throws IllegalStateException with the reason, when the bus has dismissed this program
     */
    public final void run() {
        try {
            if (isNew) {
                request("plug", "");
            }
            while (true) {
                handle(events.isEmpty() ? nextLine() : events.remove());
            }
        } catch (UncheckedIOException e) {
            // the end
        }
    }

    /** Ends the connection, on any thread: the device stalls from now on. */
    @Override
    public void close() throws IOException {
        channel.close();
    }

    private void handle(String event) {
        String name = value(event, "event");
        if (name.equals("dismissed")) {
            throw new IllegalStateException(value(event, "error"));
        }
        if (value(event, "request") == null || name.equals("cancelled")) {
            handleEvent(name);
            return;
        }
        handled = name.equals("in") ? "" : ",\"request\":" + value(event, "request");
        answer(name, event);
        handled = "";
    }

    private void answer(String name, String event) {
        String answer;
        try {
            byte[] data = answerTo(name, event);
            if (data == null && name.equals("in")) {
                return;
            }
            answer = "\"data\":\"" + HexFormat.of().formatHex(data == null ? NOTHING : data) + '"';
        } catch (NoAnswer e) {
            answer = '"' + e.getMessage() + "\":true";
        }
        ask("{\"op\":\"reply\",\"request\":" + value(event, "request") + ',' + answer + '}');
    }

    private byte[] answerTo(String name, String event) throws NoAnswer {
        if (name.equals("control")) {
            return handleControl(Setup.of(bytes(event, "setup")), bytes(event, "data"));
        }
        int address = Integer.parseInt(value(event, "address"));
        if (name.equals("in")) {
            return handleIn(address, Integer.parseInt(value(event, "length")));
        }
        handleOut(address, bytes(event, "data"));
        return null;
    }

    private String request(String operation, String more) {
        return ask("{\"op\":\"" + operation + "\",\"device\":\"" + id + '"' + more + '}');
    }

    private String nextLine() {
        try {
            String line = lines.readLine();
            if (line == null) {
                throw new EOFException("the bus has ended");
            }
            return line;
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    private static byte[] bytes(String message, String key) {
        String hex = value(message, key);
        return hex == null ? NOTHING : HexFormat.of().parseHex(hex);
    }

    /** The value of a key in a JSON object without spaces, which the lines of the bus are; null when there is none. */
    private static String value(String message, String key) {
        Matcher found = Pattern.compile("\"" + key + "\":(?:\"((?:[^\"\\\\]|\\\\.)*)\"|([\\w-]+))").matcher(message);
        if (!found.find()) {
            return null;
        }
        return found.group(1) == null ? found.group(2) : found.group(1).replaceAll("\\\\(.)", "$1");
    }
}
