package com.talvane.orvex.comm;

/** Finds and loads the native half of {@link ORVEXCommUSBAccess}. */
final class NativeLibrary {
    /** System property: the absolute path of the library's file. When it is set, no other place is tried. */
    static final String PATH_PROPERTY = "orvex.usb.library";

    private static final String NAME = "USBAccessLink";

    private NativeLibrary() {
    }

    /**
     * Loads the library: the file that {@link #PATH_PROPERTY} names, or else the one that the virtual machine finds
     * in {@code java.library.path}.
     *
     * @throws UnsatisfiedLinkError when that fails; the message tells what was tried and what to do
     */
    static void load() {
        String path = System.getProperty(PATH_PROPERTY);
        try {
            if (path != null) {
                System.load(path);
            } else {
                System.loadLibrary(NAME);
            }
        } catch (UnsatisfiedLinkError e) {
            UnsatisfiedLinkError explained = new UnsatisfiedLinkError(explain(path, e.getMessage()));
            explained.initCause(e);
            throw explained;
        }
    }

    private static String explain(String path, String reason) {
        String tried = path != null
                ? "Tried the file '" + path + "', which the system property " + PATH_PROPERTY + " names"
                : "Tried '" + System.mapLibraryName(NAME) + "' in java.library.path = '"
                        + System.getProperty("java.library.path") + "' (the system property " + PATH_PROPERTY
                        + " is not set)";
        return "The native USB library could not be loaded: " + reason + ". " + tried
                + ". Start Java with -D" + PATH_PROPERTY + "=<absolute path of the library file>, or with "
                + "-Djava.library.path=<directory that holds " + System.mapLibraryName(NAME) + ">; when the file is "
                + "there, check that libusb-1.0 is installed and that the library is built for "
                + System.getProperty("os.name") + " " + System.getProperty("os.arch") + ".";
    }
}
