package example;

import java.io.BufferedReader;
import java.io.IOException;
import java.net.StandardProtocolFamily;
import java.net.UnixDomainSocketAddress;
import java.nio.ByteBuffer;
import java.nio.channels.Channels;
import java.nio.channels.SocketChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.HexFormat;

/** The hand on the simulated devices: one request and one answer, a line of JSON each, through the control socket. */
final class SimulatedBus implements AutoCloseable {
    private final SocketChannel channel = SocketChannel.open(StandardProtocolFamily.UNIX);
    private final BufferedReader answers = new BufferedReader(Channels.newReader(channel, StandardCharsets.UTF_8));

    SimulatedBus(Path socket) throws IOException {
        channel.connect(UnixDomainSocketAddress.of(socket));
    }

    void plug(String device) throws IOException {
        ask("{'op': 'plug', 'device': '%s'}", device);
    }

    void unplug(String device) throws IOException {
        ask("{'op': 'unplug', 'device': '%s'}", device);
    }

    /** What the device sends next. */
    void feed(String device, int endpoint, String text) throws IOException {
        String hex = HexFormat.of().formatHex(text.getBytes(StandardCharsets.US_ASCII));
        ask("{'op': 'feed', 'device': '%s', 'address': %d, 'data': '%s'}", device, endpoint, hex);
    }

    private void ask(String request, Object... values) throws IOException {
        String line = String.format(request, values).replace('\'', '"') + "\n";
        channel.write(ByteBuffer.wrap(line.getBytes(StandardCharsets.UTF_8)));
        String answer = answers.readLine();
        if (answer == null || !answer.contains("\"ok\":true")) {
            throw new IOException(line + answer);
        }
    }

    @Override
    public void close() throws IOException {
        channel.close();
    }
}
