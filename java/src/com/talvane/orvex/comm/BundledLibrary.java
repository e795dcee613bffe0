package com.talvane.orvex.comm;

import java.io.IOException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/** The copies in the jar: that of the native library, and those of libraries that it needs and a machine may lack. */
final class BundledLibrary {
    private static final String NAME = "libUSBAccessLink_" + LibraryInJar.VERSION.replace('.', '_');

    /**
     * The libraries that on Linux are loaded from the jar when the system lacks them, by the names that the native
     * library uses.
     */
    private static final List<String> DEPENDENCIES = List.of("libusb-1.0.so.0", "libhidapi-hidraw.so.0");

    private BundledLibrary() {
    }

    /**
     * Unpacks the copy into the first folder from which it can be loaded, and loads it.
     *
     * @return whether it is loaded; if not, each failure is recorded
     */
    static boolean load(LoadAttempts attempts) {
        LibraryInJar[] library = new LibraryInJar[1];
        String name = NAME + (UnpackPlaces.onMac() ? ".dylib" : ".so");
        if (!attempts.succeeds("the copy in the jar", () -> library[0] = LibraryInJar.named(name))) {
            return false;
        }
        return UnpackPlaces.all().stream().anyMatch(place -> attempts.succeeds(
                "the copy in the jar, unpacked into '" + place.resolve(library[0].folder()) + "'",
                () -> loadWithWhatIsMissing(library[0], place)));
    }

    /** Loads the dependencies that the system lacks before the library, which then finds them in memory. */
    private static void loadWithWhatIsMissing(LibraryInJar library, Path place) throws IOException {
        List<String> left = new ArrayList<>(NativeLibrary.mayFallBack() ? DEPENDENCIES : List.of());
        while (true) {
            try {
                library.load(place);
                return;
            } catch (UnsatisfiedLinkError e) {
                String missing = left.stream().filter(name -> isMissing(name, e)).findFirst().orElseThrow(() -> e);
                left.remove(missing);
                loadInstead(missing, place, e);
            }
        }
    }

    private static void loadInstead(String missing, Path place, UnsatisfiedLinkError why) {
        try {
            LibraryInJar.named(missing).load(place);
        } catch (IOException | UnsatisfiedLinkError e) {
            UnsatisfiedLinkError both = new UnsatisfiedLinkError(
                    why.getMessage() + "; its copy in the jar: " + e.getMessage());
            both.initCause(e);
            throw both;
        }
    }

    /** Whether one of the dependencies was not found. */
    static boolean isDependencyMissing(UnsatisfiedLinkError failure) {
        return DEPENDENCIES.stream().anyMatch(name -> isMissing(name, failure));
    }

    /**
     * Whether a library was not found: the message of the system's loader then contains its name without a path. For a
     * library that was found and is broken it contains the path; such a failure has to be reported. The rest of the
     * message is in the user's language.
     */
    static boolean isMissing(String name, UnsatisfiedLinkError failure) {
        return failure.getMessage() != null && failure.getMessage().contains(": " + name + ": ");
    }
}
