package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Pipe;
import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.io.IOException;
import java.io.OutputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.Callable;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** One read, or as many as a number of bytes takes. */
@Command(
        name = "read",
        description = "Reads from a bulk or interrupt endpoint: once, or into a file until it has so many bytes.")
final class ReadCommand implements Callable<Integer> {
    private static final int USUAL_SIZE = 512;

    @Mixin
    private DeviceOptions device;

    @Option(
            names = "--in",
            paramLabel = "ADDRESS",
            defaultValue = "0x81",
            converter = Numbers.Octet.class,
            description = "Endpoint to read from (default: ${DEFAULT-VALUE}).")
    private int endpoint;

    @Option(names = "--interrupt", description = "It is an interrupt endpoint.")
    private boolean interrupt;

    @Option(
            names = "--size",
            paramLabel = "N",
            converter = Numbers.Size.class,
            description = "Greatest number of bytes of a transfer (default: 512, with --to 65536).")
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
                description = "Read into this file until it has as many bytes as --bytes tells.")
        private Path path;

        @Option(
                names = "--bytes",
                paramLabel = "N",
                required = true,
                converter = Numbers.Count.class,
                description = "How many bytes to read; needs --to.")
        private int bytes;
    }

    @Override
    public Integer call() throws IOException, InterruptedException {
        Pipe pipe = new Pipe(endpoint, interrupt, device.timeout);
        if (target.file != null) {
            return readFile(pipe);
        }
        try (Session session = device.session(); OpenDevice open = device.open(session)) {
            target.output.show(open.read(pipe, size == null ? USUAL_SIZE : size));
            return 0;
        }
    }

    private int readFile(Pipe pipe) throws IOException, InterruptedException {
        int piece = size == null ? LongTransfer.USUAL_PIECE : size;
        try (OutputStream file = Files.newOutputStream(target.file.path)) {
            return new LongTransfer(device, target.file.bytes, piece).run("Read", (open, at, most) -> {
                Transfer got = open.read(pipe, most);
                file.write(got.data());
                return got;
            });
        }
    }
}
