package com.talvane.orvex.comm;

import com.google.gson.JsonArray;
import com.google.gson.JsonElement;
import com.google.gson.JsonObject;
import com.google.gson.JsonParser;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.net.StandardProtocolFamily;
import java.net.UnixDomainSocketAddress;
import java.nio.ByteBuffer;
import java.nio.channels.Channels;
import java.nio.channels.SocketChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.HexFormat;
import java.util.List;
import java.util.stream.Stream;
import java.util.stream.StreamSupport;

/** Controls the devices: plugs, unplugs and changes them through the control socket of the bus. */
public final class Bus implements AutoCloseable {
    private static final String SOCKET = "SIMBUS_SOCKET";

    private final SocketChannel channel;
    private final BufferedReader answers;

    private Bus(SocketChannel channel) {
        this.channel = channel;
        this.answers = new BufferedReader(Channels.newReader(channel, StandardCharsets.UTF_8));
    }

    /** Connects to the socket that the environment names; it is there once the native library is loaded. */
    static Bus connect() {
        return connect(socket());
    }

    static Path socket() {
        String path = System.getenv(SOCKET);
        if (path == null) {
            throw new IllegalStateException(SOCKET + " must hold the path of the bus's control socket");
        }
        return Path.of(path);
    }

    /** Where the bus of a child process listens: in memory it has a socket of its own, on a kernel both share one. */
    Path socketForChild(Path folder) {
        return isMemory() ? folder.resolve("bus") : socket();
    }

    static Bus connect(Path path) {
        try {
            SocketChannel channel = SocketChannel.open(StandardProtocolFamily.UNIX);
            channel.connect(UnixDomainSocketAddress.of(path));
            return new Bus(channel);
        } catch (IOException e) {
            throw new UncheckedIOException("cannot connect to the bus at " + path, e);
        }
    }

    /** Back to the scenario. */
    void reset() {
        ask(op("reset"));
    }

    /** Whether the bus is in this process, not on a kernel. */
    public boolean isMemory() {
        return ask(op("ping")).get("front").getAsString().equals("memory");
    }

    public void plug(String id) {
        ask(on("plug", id));
    }

    public void unplug(String id) {
        ask(on("unplug", id));
    }

    /** Changes a device's description (a JSON merge patch); the host sees it at the next plug. */
    public void change(String id, String patch) {
        JsonObject request = on("change", id);
        request.add("set", JsonParser.parseString(patch));
        ask(request);
    }

    /** Changes how an endpoint behaves, at once. */
    public void endpoint(String id, int address, String settings) {
        JsonObject request = on("endpoint", id, address);
        request.add("set", JsonParser.parseString(settings));
        ask(request);
    }

    /** Queues bytes for an IN endpoint. */
    public void feed(String id, int address, byte... data) {
        JsonObject request = on("feed", id, address);
        request.addProperty("data", HexFormat.of().formatHex(data));
        ask(request);
    }

    /** The data that an OUT endpoint received, one piece for each transfer. */
    public List<byte[]> received(String id, int address) {
        return elements(ask(on("received", id, address)), "packets")
                .map(e -> HexFormat.of().parseHex(e.getAsString()))
                .toList();
    }

    /** How many transfers wait at an endpoint. */
    public int pending(String id, int address) {
        return ask(on("pending", id, address)).get("count").getAsInt();
    }

    /** The serial numbers of the devices that are plugged in and have one. */
    public List<String> pluggedSerials() {
        return elements(ask(op("devices")), "devices")
                .map(JsonElement::getAsJsonObject)
                .filter(d -> d.get("plugged").getAsBoolean())
                .map(d -> d.has("serial") ? d.get("serial").getAsString() : "")
                .filter(serial -> !serial.isEmpty())
                .sorted()
                .toList();
    }

    /** Lets the next call of a libusb function fail. Memory only. */
    public void failNext(String call, int code) {
        fail(call, 1, code);
    }

    /** Lets the nth next call (1 is the next) of a libusb function fail. Memory only. */
    public void fail(String call, int nth, int code) {
        JsonObject request = op("fault");
        request.addProperty("call", call);
        request.addProperty("nth", nth);
        request.addProperty("code", code);
        request.addProperty("times", 1);
        ask(request);
    }

    /** Resets the counts of calls. Memory only. */
    public void clearCalls() {
        ask(op("clearCalls"));
    }

    /** How often a libusb function was called. Memory only. */
    public int calls(String call) {
        JsonElement count = ask(op("calls")).getAsJsonObject("calls").get(call);
        return count == null ? 0 : count.getAsInt();
    }

    /** The violations in calls of libusb. Memory only. */
    List<String> violations() {
        return elements(ask(op("violations")), "violations").map(JsonElement::getAsString).toList();
    }

    /** How many things of a kind, as "transfers not freed", the drop-in libraries have handed out. Memory only. */
    int tally(String things) {
        JsonElement count = ask(op("violations")).getAsJsonObject("tallies").get(things);
        return count == null ? 0 : count.getAsInt();
    }

    @Override
    public void close() {
        try {
            channel.close();
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    private static JsonObject op(String name) {
        JsonObject request = new JsonObject();
        request.addProperty("op", name);
        return request;
    }

    private static JsonObject on(String name, String device) {
        JsonObject request = op(name);
        request.addProperty("device", device);
        return request;
    }

    private static JsonObject on(String name, String device, int address) {
        JsonObject request = on(name, device);
        request.addProperty("address", address);
        return request;
    }

    private static Stream<JsonElement> elements(JsonObject answer, String name) {
        JsonArray array = answer.getAsJsonArray(name);
        return StreamSupport.stream(array.spliterator(), false);
    }

    private synchronized JsonObject ask(JsonObject request) {
        try {
            ByteBuffer line = StandardCharsets.UTF_8.encode(request + "\n");
            while (line.hasRemaining()) {
                channel.write(line);
            }
            String text = answers.readLine();
            if (text == null) {
                throw new IOException("the bus closed the connection");
            }
            JsonObject answer = JsonParser.parseString(text).getAsJsonObject();
            if (!answer.get("ok").getAsBoolean()) {
                throw new IOException(answer.get("error").getAsString());
            }
            return answer;
        } catch (IOException e) {
            throw new UncheckedIOException(request + ": " + e.getMessage(), e);
        }
    }
}
