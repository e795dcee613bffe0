package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Pipe;
import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.concurrent.Callable;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Writes some bytes in one transfer, or a whole file in several. */
@Command(
        name = "write",
        description = "Writes to a bulk or interrupt endpoint: some bytes in one transfer, or a whole file in several.")
final class WriteCommand implements Callable<Integer> {
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
    private int endpoint;

    @Option(names = "--interrupt", description = "Use an interrupt endpoint.")
    private boolean interrupt;

    @ArgGroup(multiplicity = "1")
    private Content content;

    private static final class Content {
        @ArgGroup(multiplicity = "1")
        private DataToSend once;

        @ArgGroup(exclusive = false, multiplicity = "1")
        private WholeFile file;
    }

    private static final class WholeFile {
        @Option(
                names = "--file",
                paramLabel = "FILE",
                required = true,
                description = "Write the whole file, of any size.")
        private Path path;

        @Option(
                names = "--size",
                paramLabel = "N",
                converter = Numbers.Size.class,
                description = "Bytes for each transfer (default: 65536); needs --file.")
        private int piece = LongTransfer.USUAL_PIECE;
    }

    @Override
    public Integer call() throws IOException, InterruptedException {
        Pipe pipe = new Pipe(endpoint, interrupt, device.timeout);
        if (content.file != null) {
            return writeFile(pipe);
        }
        byte[] data = content.once.bytes();
        try (Session session = device.session(); OpenDevice open = device.openPipes(session)) {
            Transfer sent = open.write(pipe, data);
            if (json.isWanted()) {
                JsonOption.write(JsonOption.sent(sent, data.length));
                return tookAll(sent, data.length) ? 0 : 1;
            }
            return tell(sent, data.length);
        }
    }

    private int writeFile(Pipe pipe) throws IOException, InterruptedException {
        try (FileChannel file = FileChannel.open(content.file.path)) {
            LongTransfer transfer = new LongTransfer(device, file.size(), content.file.piece, json.isWanted());
            return transfer.run(false, (open, at, size) -> {
                ByteBuffer bytes = ByteBuffer.allocate(size);
                int read = file.read(bytes, at);
                return open.write(pipe, Arrays.copyOf(bytes.array(), Math.max(0, read)));
            });
        }
    }

    static int tell(Transfer sent, int size) {
        System.err.println("Wrote " + sent.took());
        return tookAll(sent, size) ? 0 : 1;
    }

    /** Whether the device accepted all bytes; reports it if it did not. */
    static boolean tookAll(Transfer sent, int size) {
        boolean all = sent.data().length == size;
        if (!all) {
            System.err.println("orvex-usb: the device accepted only " + sent.data().length + " of " + size + " bytes");
        }
        return all;
    }
}
