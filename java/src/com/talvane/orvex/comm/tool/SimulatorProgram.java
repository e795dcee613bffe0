package com.talvane.orvex.comm.tool;

import java.io.File;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Stream;

/** A program of the simulator: beside the tool, or where the shell would find it. */
record SimulatorProgram(String name) {
    /** Where the launcher expects the simulator. */
    private static final String FOLDER = "orvex.usb.simulator";

    /** Runs it with the streams of this process. Returns its exit status. */
    int run(List<String> arguments) throws IOException, InterruptedException {
        List<String> command = new ArrayList<>();
        command.add(find().toString());
        command.addAll(arguments);
        return new ProcessBuilder(command).inheritIO().start().waitFor();
    }

    private Path find() {
        String path = System.getenv("PATH");
        return Stream.concat(Stream.ofNullable(System.getProperty(FOLDER)),
                        Stream.of((path == null ? "" : path).split(File.pathSeparator)))
                .map(folder -> Path.of(folder).resolve(name))
                .filter(Files::isExecutable)
                .findFirst()
                .orElseThrow(() -> new IllegalStateException(
                        name + " is not installed; it is in the package orvex-usb-simulator"));
    }
}
