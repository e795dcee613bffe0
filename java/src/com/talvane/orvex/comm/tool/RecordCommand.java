package com.talvane.orvex.comm.tool;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Parameters;

/** Records what any program sends and receives over USB. */
@Command(
        name = "record",
        description = "Records what any program that uses libusb or hidapi (on macOS: libusb) sends and receives."
                + " Commands of this tool are recorded by --record, on any system.",
        footer = {"", "Such as: orvex-usb record bug.pcapng -- dfu-util --list", "The exit status is the program's."})
final class RecordCommand implements Callable<Integer> {
    @Mixin
    private LeftOut leftOut;

    @Parameters(index = "0", paramLabel = "FILE", description = "The recording.")
    private String file;

    @Parameters(index = "1..*", arity = "1..*", paramLabel = "PROGRAM",
            description = "The program and its arguments, after --.")
    private List<String> program;

    @Override
    public Integer call() throws Exception {
        List<String> words = new ArrayList<>(leftOut.words());
        words.addAll(List.of("--to", file, "--"));
        words.addAll(program);
        return new SimulatorProgram("simbus-record").run(words);
    }
}
