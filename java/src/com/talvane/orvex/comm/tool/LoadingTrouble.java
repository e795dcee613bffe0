package com.talvane.orvex.comm.tool;

import java.util.List;
import java.util.regex.Pattern;

/** Finds out from the message of the system's loader why the native library could not be loaded. */
final class LoadingTrouble {
    private static final String PROCESSOR = "it is built for another processor than this Java, "
            + System.getProperty("os.arch");

    /** A message of the loader, its meaning, and the fix. */
    private record Cause(Pattern said, String meaning, String remedy) {
        Cause(String said, String meaning, String remedy) {
            this(Pattern.compile(said), meaning, remedy);
        }
    }

    /** The first match counts: the message about a file for another processor may also say that it is missing. */
    private static final List<Cause> CAUSES = List.of(
            new Cause("wrong ELF class|incompatible architecture|Possible cause: can't load", PROCESSOR,
                    "use a library for this processor, or a Java for the processor of the library"),
            new Cause("META-INF/native/\\S+/libUSBAccessLink\\S+ is not in the jar",
                    "the jar has no library for this processor and system, " + System.getProperty("os.arch"),
                    "use a jar that was built for them, or start Java with -Dorvex.usb.library=FILE"),
            // The loader did not find a name without a path. The rest of such a message is in the user's language.
            new Cause(": libudev\\.so\\S*: ", "libudev is missing", "sudo apt-get install libudev1"),
            new Cause(": libusb-1\\.0\\.so\\S*: ", "libusb-1.0 is missing", "sudo apt-get install libusb-1.0-0"),
            new Cause(": libhidapi-hidraw\\.so\\S*: ", "hidapi is missing", "sudo apt-get install libhidapi-hidraw0"),
            new Cause("Library not loaded: \\S*libusb", "libusb-1.0 is missing", "brew install libusb"));

    private LoadingTrouble() {
    }

    static Finding of(UnsatisfiedLinkError failure) {
        String said = String.valueOf(failure.getMessage());
        return CAUSES.stream()
                .filter(cause -> cause.said.matcher(said).find())
                .findFirst()
                .map(cause -> Finding.bad("the native library cannot be loaded: " + cause.meaning, cause.remedy))
                .orElseGet(() -> Finding.bad("the native library cannot be loaded", said.lines().toList()));
    }
}
