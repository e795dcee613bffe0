package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Pipe;
import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.io.Closeable;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.concurrent.Callable;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Reads once, or a number of bytes in several transfers. */
@Command(
        name = "read",
        description = "Reads from a bulk or interrupt endpoint: once, or a number of bytes into a file.")
final class ReadCommand implements Callable<Integer> {
    private static final int USUAL_SIZE = 512;

    @Mixin
    private DeviceOptions device;

    @Mixin
    private JsonOption json;

    @Option(
            names = "--in",
            paramLabel = "ADDRESS",
            defaultValue = "0x81",
            converter = Numbers.InEndpoint.class,
            description = "Endpoint to read from (default: ${DEFAULT-VALUE}).")
    private int endpoint;

    @Option(names = "--interrupt", description = "Use an interrupt endpoint.")
    private boolean interrupt;

    @Option(
            names = "--size",
            paramLabel = "N",
            converter = Numbers.Size.class,
            description = "Maximum number of bytes for each transfer (default: 512, with --to 65536).")
    private Integer size;

    @ArgGroup
    private Target target = new Target();

    private static final class Target {
        @ArgGroup
        private Output output = new Output();

        @ArgGroup(exclusive = false, multiplicity = "1")
        private WholeFile file;
    }

    private static final class WholeFile {
        @Option(
                names = "--to",
                paramLabel = "FILE",
                required = true,
                description = "Read --bytes bytes into this file. Its old content is replaced when the first bytes"
                        + " arrive.")
        private Path path;

        @Option(
                names = "--bytes",
                paramLabel = "N",
                required = true,
                converter = Numbers.Count.class,
                description = "Number of bytes to read; needs --to.")
        private int bytes;
    }

    @Override
    public Integer call() throws IOException, InterruptedException {
        json.demandRoom(target.output);
        Pipe pipe = new Pipe(endpoint, interrupt, device.timeout);
        if (target.file != null) {
            return readFile(pipe);
        }
        try (Session session = device.session(); OpenDevice open = device.openPipes(session)) {
            int most = size == null ? USUAL_SIZE : size;
            Transfer got = open.read(pipe, most);
            target.output.show(got, json.isWanted());
            if (json.isWanted()) {
                JsonOption.write(JsonOption.got(got, most));
            }
            return 0;
        }
    }

    private int readFile(Pipe pipe) throws IOException, InterruptedException {
        int piece = size == null ? LongTransfer.USUAL_PIECE : size;
        try (Destination to = new Destination(target.file.path)) {
            LongTransfer transfer = new LongTransfer(device, target.file.bytes, piece, json.isWanted());
            int status = transfer.run(true, (open, at, most) -> {
                to.open();
                Transfer got = open.read(pipe, most);
                to.write(got.data());
                return got;
            });
            if (status == 0) {
                to.write(new byte[0]); // With --bytes 0 no transfer has created the file.
            }
            return status;
        }
    }

    /** A file that keeps its old content until the first new bytes arrive. */
    private static final class Destination implements Closeable {
        private final Path path;
        private FileChannel file;
        private boolean hasOld;

        Destination(Path path) {
            this.path = path;
        }

        /** Opens the file before the first read: if it cannot be written to, no bytes are lost. */
        void open() throws IOException {
            if (file == null) {
                file = FileChannel.open(path, StandardOpenOption.CREATE, StandardOpenOption.WRITE);
                hasOld = Files.isRegularFile(path);
            }
        }

        void write(byte[] data) throws IOException {
            open();
            if (hasOld) {
                file.truncate(0);
                hasOld = false;
            }
            for (ByteBuffer left = ByteBuffer.wrap(data); left.hasRemaining();) {
                file.write(left);
            }
        }

        @Override
        public void close() throws IOException {
            if (file != null) {
                file.close();
            }
        }
    }
}
