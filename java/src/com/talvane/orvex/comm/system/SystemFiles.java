package com.talvane.orvex.comm.system;

import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Stream;

/** Folders and files in which a system tells of itself, and which may be gone the next moment. */
public final class SystemFiles {
    private SystemFiles() {
    }

    /** The contents of a folder, sorted by name; empty if it cannot be read or is not a folder. */
    public static List<Path> children(Path folder) {
        try (Stream<Path> paths = Files.list(folder)) {
            return paths.sorted().toList();
        } catch (IOException | UncheckedIOException e) {
            return List.of();
        }
    }

    /** The text of a file with one line; empty if it cannot be read. */
    public static String text(Path file) {
        try {
            return Files.readString(file).strip();
        } catch (IOException e) {
            return "";
        }
    }
}
