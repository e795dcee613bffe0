package com.talvane.orvex.comm.tool;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Path;
import picocli.CommandLine.Option;

/** Bytes for a device, from the command line or from a file: a group of options of which exactly one is given. */
final class DataToSend {
    @Option(
            names = "--data",
            paramLabel = "HEX",
            converter = Numbers.Hex.class,
            description = "The bytes, as pairs of hexadecimal digits.")
    private ByteBuffer data;

    @Option(
            names = {"-i", "--input"},
            paramLabel = "FILE",
            description = "Read the bytes from this file, - for standard input.")
    private String input;

    byte[] bytes() throws IOException {
        if (data != null) {
            return data.array();
        }
        return input.equals("-") ? System.in.readAllBytes() : Files.readAllBytes(Path.of(input));
    }
}
