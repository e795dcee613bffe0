package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.recording.Recorder;
import com.talvane.orvex.comm.recording.Recorder.Counts;
import java.io.IOException;
import java.nio.file.Path;
import java.util.concurrent.TimeUnit;
import picocli.CommandLine.ExecutionException;
import picocli.CommandLine.IExecutionStrategy;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParseResult;

/** The options that have a command recorded. */
final class RecordOptions extends LeftOut {
    @Option(
            names = "--record",
            required = true,
            paramLabel = "FILE",
            description = "Before COMMAND: record what it transfers, with all data, as a capture for simbus-replay and"
                    + " Wireshark.")
    private Path file;

    /** Executes a command line and records its session. */
    int execute(ParseResult line, IExecutionStrategy command) {
        long start = System.nanoTime();
        Recorder recorder = begin(line);
        System.err.println("Records all that is sent and received" + contents() + ": " + file);
        Session.recordTo(recorder);
        try {
            return command.execute(line);
        } finally {
            Session.recordTo(null);
            end(recorder);
            Counts counts = recorder.counts();
            System.err.printf("Recorded %s, %s, %s in %.1f s: %s%n", counted(counts.devices(), "device"),
                    counted(counts.transfers(), "transfer"), counted(counts.bytes(), "byte"),
                    (System.nanoTime() - start) / (double) TimeUnit.SECONDS.toNanos(1), file);
        }
    }

    private Recorder begin(ParseResult line) {
        try {
            return new Recorder(file, serials(), data(), failure ->
                    System.err.println("The recording ends here, the command goes on: " + failure.getMessage()));
        } catch (IOException e) {
            throw new ExecutionException(line.commandSpec().commandLine(), "the recording", e);
        }
    }

    private static void end(Recorder recorder) {
        try {
            recorder.close();
        } catch (IOException e) {
            // Told when it happened.
        }
    }

    private static String counted(long count, String what) {
        return count + " " + what + (count == 1 ? "" : "s");
    }
}
