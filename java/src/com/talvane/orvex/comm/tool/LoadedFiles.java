package com.talvane.orvex.comm.tool;

import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Comparator;
import java.util.regex.MatchResult;
import java.util.regex.Pattern;
import java.util.stream.Stream;

/** The files that this process has loaded for the native library, read from /proc on Linux; none on other systems. */
final class LoadedFiles {
    private static final Pattern OF_LIBRARY = Pattern.compile("/.*/lib(USBAccessLink|usb-1\\.0|hidapi)[^/]*$");
    /** The files that the loader unpacks from the jar. */
    private static final Pattern FROM_JAR = Pattern.compile("/orvex-usb-access[^/]*/[\\d.]+-[0-9a-f]{16}/[^/]+$");

    private LoadedFiles() {
    }

    /** The library itself, libusb and hidapi, each with its path and whether it comes from the jar. */
    static String[] ofLibrary() {
        try (Stream<String> maps = Files.lines(Path.of("/proc/self/maps"))) {
            return maps.flatMap(map -> OF_LIBRARY.matcher(map).results()).map(MatchResult::group).distinct()
                    .sorted(Comparator.comparing(file -> file.substring(file.lastIndexOf('/'))))
                    .map(LoadedFiles::told).toArray(String[]::new);
        } catch (IOException | UncheckedIOException e) {
            return new String[0];
        }
    }

    private static String told(String file) {
        return Text.printable(file) + (FROM_JAR.matcher(file).find() ? ", the copy in the jar" : "");
    }
}
