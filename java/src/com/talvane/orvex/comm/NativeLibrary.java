package com.talvane.orvex.comm;

import java.io.File;
import java.util.regex.Pattern;

/**
 * Finds and loads the native half of {@link ORVEXCommUSBAccess}. If a library in a place that the caller has selected
 * cannot be loaded, this class reports the failure; it does not fall back to the copy in the jar.
 */
final class NativeLibrary {
    /** System property: the absolute path of the library's file. When it is set, no other place is tried. */
    static final String PATH_PROPERTY = "orvex.usb.library";

    /** System property: any value other than "true" disables the copies of libusb and hidapi in the jar. */
    static final String FALLBACK_PROPERTY = "orvex.usb.fallback";

    private static final String NAME = "USBAccessLink";

    private NativeLibrary() {
    }

    /**
     * Loads the library: the file that {@link #PATH_PROPERTY} names; or else the one that the virtual machine finds in
     * {@code java.library.path}; or else, when there is none, the copy in the jar.
     *
     * @throws UnsatisfiedLinkError when that fails; the message lists what was tried and what to do
     */
    static void load() {
        LoadAttempts attempts = new LoadAttempts();
        try {
            if (!load(attempts)) {
                throw attempts.failure();
            }
        } catch (IllegalCallerException e) {
            throw LoadAttempts.nativeAccessDenied(e);
        }
    }

    private static boolean load(LoadAttempts attempts) {
        String path = System.getProperty(PATH_PROPERTY);
        if (path != null) {
            return attempts.succeeds("the file '" + path + "', which the system property " + PATH_PROPERTY + " names",
                    () -> System.load(path));
        }
        String folders = System.getProperty("java.library.path", "");
        String what = "'" + fileName() + "' in java.library.path = '" + folders + "' (the system property "
                + PATH_PROPERTY + " is not set)";
        return attempts.succeeds(what, () -> System.loadLibrary(NAME))
                || !liesIn(folders) && BundledLibrary.load(attempts);
    }

    /** Whether libusb and hidapi may come from the jar when the system has none. */
    static boolean mayFallBack() {
        return System.getProperty(FALLBACK_PROPERTY, "true").equals("true");
    }

    /** The name by which the virtual machine looks for the library. */
    static String fileName() {
        return System.mapLibraryName(NAME);
    }

    private static boolean liesIn(String folders) {
        return Pattern.compile(File.pathSeparator, Pattern.LITERAL).splitAsStream(folders)
                .map(folder -> folder.isEmpty() ? "." : folder)
                .anyMatch(folder -> new File(folder, fileName()).exists());
    }
}
