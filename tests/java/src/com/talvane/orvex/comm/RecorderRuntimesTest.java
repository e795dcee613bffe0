package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import jdk.jfr.consumer.RecordingFile;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** The safe layer in Java runtimes with and without a flight recorder. */
@Tag("memory")
class RecorderRuntimesTest {
    private static final String WORKS = """
            written: 3
            read from endpoint 0x84 of BENCH00001: -150: the transfer timed out
            """;

    @TempDir
    private Path folder;

    private static void assertWorks(ChildVm.Outcome program) {
        assertEquals(WORKS, program.out(), program.err());
        assertEquals(0, program.status(), program.err());
    }

    /** With java.base alone the log has no java.util.logging behind it either. */
    @ParameterizedTest
    @ValueSource(strings = {"java.base", "java.base,java.logging"})
    void aRuntimeWithoutTheRecorderWorks(String modules) throws Exception {
        ChildVm.Outcome program = new ChildVm().with("--limit-modules=" + modules).run("safeLayer");
        assertWorks(program);
        assertEquals("", program.err());
    }

    /** Nothing asks for the module of the recorder then. */
    @Test
    void theModuleWorksWithoutThatOfTheRecorder() throws Exception {
        assertWorks(new ChildVm().runInModule("safeLayer"));
    }

    @Test
    void theRecorderIsNotStartedWithoutARecording() throws Exception {
        Path log = folder.resolve("log");
        assertWorks(new ChildVm().with("-Xlog:class+load:file=" + log).run("safeLayer"));
        String loaded = Files.readString(log);
        assertTrue(loaded.contains("com.talvane.orvex.comm.access.Observed "), "the log names what is loaded");
        assertFalse(loaded.contains("com.talvane.orvex.comm.access.TransferEvent "), "an event is loaded");
        assertFalse(loaded.contains("jdk.jfr.internal.MetadataRepository "), "the recorder is started");
    }

    @Test
    void aRecordingFromTheStartHasAllEvents() throws Exception {
        Path file = folder.resolve("tool.jfr");
        ChildVm recorded = new ChildVm().with("-XX:StartFlightRecording:filename=" + file);
        assertWorksAndRecords(recorded.run("safeLayer"), file);
    }

    @Test
    void theModuleIsRecordedToo() throws Exception {
        Path file = folder.resolve("module.jfr");
        ChildVm recorded = new ChildVm().with("-XX:StartFlightRecording:filename=" + file);
        assertWorksAndRecords(recorded.runInModule("safeLayer"), file);
    }

    /** The recorder itself says on the standard output that it records. */
    private static void assertWorksAndRecords(ChildVm.Outcome program, Path file) throws Exception {
        assertTrue(program.out().endsWith(WORKS), program.toString());
        assertEquals(0, program.status(), program.err());
        List<String> events = RecordingFile.readAllEvents(file).stream()
                .map(event -> event.getEventType().getName())
                .filter(name -> name.startsWith("com.talvane.orvex."))
                .sorted()
                .toList();
        assertEquals(List.of("com.talvane.orvex.Device", "com.talvane.orvex.Device", "com.talvane.orvex.Transfer",
                "com.talvane.orvex.Transfer"), events);
    }
}
