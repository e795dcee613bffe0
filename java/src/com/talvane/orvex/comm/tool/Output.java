package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import picocli.CommandLine.Option;

/** The destination of bytes from a device. */
final class Output {
    @Option(
            names = {"-o", "--output"},
            paramLabel = "FILE",
            description = "Write the bytes to this file, - for standard output, instead of a hex dump.")
    private String file;

    boolean isStandard() {
        return "-".equals(file);
    }

    /** Writes the bytes, and a line about the read unless the caller reports it as JSON. */
    void show(Transfer got, boolean isTold) throws IOException {
        if (!isTold) {
            System.err.println("Read " + got.took());
        }
        if (file == null && isTold) {
            return;
        }
        if (file == null) {
            Text.hexDump(got.data()).forEach(System.out::println);
        } else if (file.equals("-")) {
            System.out.write(got.data());
            System.out.flush();
        } else {
            Files.write(Path.of(file), got.data());
        }
    }
}
