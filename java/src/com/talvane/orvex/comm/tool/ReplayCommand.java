package com.talvane.orvex.comm.tool;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Parameters;

/** Makes simulated devices of a recording. */
@Command(
        name = "replay",
        description = "Runs a program with simulated devices that answer as those of a recording did, on Linux.",
        footer = {"", "Such as: orvex-usb replay bug.pcapng -- orvex-usb list",
            "Without a program it writes the scenario of the devices. The exit status is the program's."})
final class ReplayCommand implements Callable<Integer> {
    @Parameters(index = "0", paramLabel = "FILE", description = "The recording, or any capture of Linux's usbmon.")
    private String file;

    @Parameters(index = "1..*", paramLabel = "PROGRAM", description = "The program and its arguments, after --.")
    private List<String> program = List.of();

    @Override
    public Integer call() throws Exception {
        List<String> words = new ArrayList<>(List.of(file));
        if (!program.isEmpty()) {
            words.add("--");
            words.addAll(program);
        }
        return new SimulatorProgram("simbus-replay").run(words);
    }
}
