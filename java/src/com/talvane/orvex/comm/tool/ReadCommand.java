package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Pipe;
import java.io.IOException;
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

    @Mixin
    private Output output;

    @Override
    public Integer call() throws IOException {
        try (Session session = device.session(); OpenDevice open = device.open(session)) {
            output.show(open.read(new Pipe(endpoint, interrupt, device.timeout), size));
            return 0;
        }
    }
}
