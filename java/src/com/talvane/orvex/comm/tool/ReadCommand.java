package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Pipe;
import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** One read. */
@Command(
        name = "read",
        description = "Reads once from a bulk or interrupt endpoint.")
final class ReadCommand implements Callable<Integer> {
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
            defaultValue = "512",
            converter = Numbers.Size.class,
            description = "Greatest number of bytes (default: ${DEFAULT-VALUE}).")
    private int size;

    @Option(
            names = {"-o", "--output"},
            paramLabel = "FILE",
            description = "Write the bytes to this file, - for standard output, instead of a hex dump.")
    private String output;

    @Override
    public Integer call() throws IOException {
        try (Session session = device.session(); OpenDevice open = device.open(session)) {
            Transfer got = open.read(new Pipe(endpoint, interrupt, device.timeout), size);
            if (output == null) {
                Text.hexDump(got.data()).forEach(System.out::println);
            } else if (output.equals("-")) {
                System.out.write(got.data());
                System.out.flush();
            } else {
                Files.write(Path.of(output), got.data());
            }
            System.err.println("Read " + got.took());
            return 0;
        }
    }
}
