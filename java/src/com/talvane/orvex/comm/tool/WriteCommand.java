package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Pipe;
import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.io.IOException;
import java.util.concurrent.Callable;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** One write. */
@Command(
        name = "write",
        description = "Writes once to a bulk or interrupt endpoint.")
final class WriteCommand implements Callable<Integer> {
    @Mixin
    private DeviceOptions device;

    @Option(
            names = "--out",
            paramLabel = "ADDRESS",
            defaultValue = "0x01",
            converter = Numbers.Octet.class,
            description = "Endpoint to write to (default: ${DEFAULT-VALUE}).")
    private int endpoint;

    @Option(names = "--interrupt", description = "It is an interrupt endpoint.")
    private boolean interrupt;

    @ArgGroup(multiplicity = "1")
    private DataToSend content;

    @Override
    public Integer call() throws IOException {
        byte[] data = content.bytes();
        try (Session session = device.session(); OpenDevice open = device.open(session)) {
            return tell(open.write(new Pipe(endpoint, interrupt, device.timeout), data), data.length);
        }
    }

    static int tell(Transfer sent, int size) {
        System.err.println("Wrote " + sent.took());
        return tookAll(sent, size) ? 0 : 1;
    }

    /** A device that takes less than it was given did not do its job; the user is told. */
    static boolean tookAll(Transfer sent, int size) {
        boolean all = sent.data().length == size;
        if (!all) {
            System.err.println("orvex-usb: the device took only " + sent.data().length + " of " + size);
        }
        return all;
    }
}
