package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Pipe;
import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.concurrent.Callable;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** The main job in one command: open, write, read the echo, compare, close. */
@Command(
        name = "echo",
        description = "Writes to a bulk endpoint, reads the echo and compares.")
final class EchoCommand implements Callable<Integer> {
    @Mixin
    private DeviceOptions device;

    @Mixin
    private JsonOption json;

    @Option(
            names = "--out",
            paramLabel = "ADDRESS",
            defaultValue = "0x01",
            converter = Numbers.OutEndpoint.class,
            description = "Endpoint to write to (default: ${DEFAULT-VALUE}).")
    private int out;

    @Option(
            names = "--in",
            paramLabel = "ADDRESS",
            defaultValue = "0x81",
            converter = Numbers.InEndpoint.class,
            description = "Endpoint to read from (default: ${DEFAULT-VALUE}).")
    private int in;

    @ArgGroup
    private Content content = new Content();

    private static final class Content {
        @Option(
                names = "--size",
                paramLabel = "N",
                converter = Numbers.Size.class,
                description = "Send N counting bytes (default: 64).")
        private int size = 64;

        @Option(names = "--text", paramLabel = "T", description = "Send this text in UTF-8.")
        private String text;

        private byte[] bytes() {
            if (text != null) {
                return text.getBytes(StandardCharsets.UTF_8);
            }
            byte[] counting = new byte[size];
            for (int i = 0; i < size; i++) {
                counting[i] = (byte) i;
            }
            return counting;
        }
    }

    @Override
    public Integer call() {
        try (Session session = device.session(); OpenDevice open = device.openPipes(session)) {
            showOpened(open.info());
            byte[] data = content.bytes();
            Transfer sent = open.write(new Pipe(out, false, device.timeout), data);
            show("OUT", out, sent);
            if (!WriteCommand.tookAll(sent, data.length)) {
                return 1;
            }
            Transfer echo = open.readAll(new Pipe(in, false, device.timeout), data.length);
            show("IN ", in, echo);
            boolean equal = Arrays.equals(data, echo.data());
            if (json.isWanted()) {
                Map<String, Object> fields = new LinkedHashMap<>();
                fields.put("equal", equal);
                fields.put("out", JsonOption.sent(sent, data.length));
                fields.put("in", JsonOption.got(echo, data.length));
                JsonOption.write(fields);
            } else {
                System.out.println(equal ? "The echo is equal." : "The echo differs.");
            }
            return equal ? 0 : 1;
        }
    }

    private void showOpened(DeviceInfo info) {
        if (!json.isWanted()) {
            System.out.printf("Opened %s: %s %s%n", info.label(), Text.printable(info.line().manufacturer()),
                    Text.printable(info.line().product()));
        }
    }

    private void show(String direction, int endpoint, Transfer transfer) {
        if (json.isWanted()) {
            return;
        }
        System.out.printf("%s 0x%02X  %s%n", direction, endpoint, transfer.took());
        Text.hexDump(transfer.data()).forEach(System.out::println);
    }
}
