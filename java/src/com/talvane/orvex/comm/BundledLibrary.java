package com.talvane.orvex.comm;

import java.io.IOException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/** The copy of the native library in the jar, and those of the libraries of others that a machine may not have. */
final class BundledLibrary {
    private static final String NAME = "libUSBAccessLink_" + LibraryInJar.VERSION.replace('.', '_');

    /** What is on Linux loaded from the jar when the system has none, by the names that the native library asks for. */
    private static final List<String> DEPENDENCIES = List.of("libusb-1.0.so.0", "libhidapi-hidraw.so.0");

    private BundledLibrary() {
    }

    /**
     * Loads the copy from the first folder where that works.
     *
     * @return whether it is loaded; if not, each failure is noted
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

    /** What the system does not have of the dependencies is loaded first, and the library then finds it loaded. */
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
     * Whether a library was not found: the system's loader then gives its name alone. One that was found and is broken,
     * which has to be told, it gives by its path. What it says besides is in the user's language.
     */
    static boolean isMissing(String name, UnsatisfiedLinkError failure) {
        return failure.getMessage() != null && failure.getMessage().contains(": " + name + ": ");
    }
}
