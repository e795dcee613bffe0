package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.concurrent.Callable;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;

/** Makes one control request. */
@Command(
        name = "control",
        description = "Makes a control request. A request that should move bytes and moves none is a failure.")
final class ControlCommand implements Callable<Integer> {
    private static final int GREATEST_LENGTH = 0xFFFF;

    @Mixin
    private DeviceOptions device;

    @Mixin
    private JsonOption json;

    @Spec
    private CommandSpec command;

    @Option(
            names = "--request-type",
            paramLabel = "BYTE",
            required = true,
            converter = Numbers.Octet.class,
            description = "bmRequestType; with bit 0x80 set the device sends the data, otherwise it receives them.")
    private int requestType;

    @Option(
            names = "--request",
            paramLabel = "BYTE",
            required = true,
            converter = Numbers.Octet.class,
            description = "bRequest.")
    private int request;

    @Option(
            names = "--value",
            paramLabel = "WORD",
            defaultValue = "0",
            converter = Numbers.Word.class,
            description = "wValue (default: ${DEFAULT-VALUE}).")
    private int value;

    @Option(
            names = "--index-word",
            paramLabel = "WORD",
            defaultValue = "0",
            converter = Numbers.Word.class,
            description = "wIndex (default: ${DEFAULT-VALUE}).")
    private int indexWord;

    @ArgGroup
    private Content content = new Content();

    private static final class Content {
        @Option(
                names = "--length",
                paramLabel = "N",
                converter = Numbers.Word.class,
                description = "Request up to N bytes from the device.")
        private Integer length;

        @Option(
                names = "--data",
                paramLabel = "HEX",
                converter = Numbers.Hex.class,
                description = "Send these bytes, as pairs of hexadecimal digits.")
        private ByteBuffer data;
    }

    @Override
    public Integer call() {
        byte[] buffer = setupAndData();
        try (Session session = device.session(); OpenDevice open = device.open(session)) {
            Transfer done = open.control(buffer, device.timeout);
            int wanted = buffer.length - OpenDevice.SETUP_BYTES;
            if (done.data().length == 0 && wanted > 0) {
                throw new UsbFailure(String.format("%s refused the request%s: 0 of %d bytes", open.info().label(),
                        isIn() ? ", or had no data" : "", wanted));
            }
            if (json.isWanted()) {
                JsonOption.write(isIn() ? JsonOption.got(done, wanted) : JsonOption.sent(done, wanted));
                return !isIn() && !WriteCommand.tookAll(done, wanted) ? 1 : 0;
            }
            if (isIn()) {
                System.err.println("Read " + done.took());
                Text.hexDump(done.data()).forEach(System.out::println);
                return 0;
            }
            return WriteCommand.tell(done, wanted);
        }
    }

    private boolean isIn() {
        return (requestType & 0x80) != 0;
    }

    private byte[] setupAndData() {
        if (isIn() ? content.data != null : content.length != null) {
            throw new ParameterException(command.commandLine(), isIn()
                    ? "This request type gets data from the device: use --length instead of --data"
                    : "This request type sends data to the device: use --data instead of --length");
        }
        byte[] data = content.data != null ? content.data.array()
                : new byte[content.length != null ? content.length : 0];
        if (data.length > GREATEST_LENGTH) {
            throw new ParameterException(command.commandLine(), "A request can have at most 65535 bytes of data");
        }
        return ByteBuffer.allocate(OpenDevice.SETUP_BYTES + data.length)
                .order(ByteOrder.LITTLE_ENDIAN)
                .put((byte) requestType)
                .put((byte) request)
                .putShort((short) value)
                .putShort((short) indexWord)
                .putShort((short) data.length)
                .put(data)
                .array();
    }
}
