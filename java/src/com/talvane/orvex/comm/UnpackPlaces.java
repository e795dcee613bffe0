package com.talvane.orvex.comm;

import java.nio.file.Path;
import java.util.List;
import java.util.Locale;
import java.util.Objects;
import java.util.stream.Stream;

/** The folders into which the copy of the native library may be unpacked, the best first. */
final class UnpackPlaces {
    private static final String FOLDER = "orvex-usb-access";

    private UnpackPlaces() {
    }

    /**
     * The user's cache; the folder that exists while the user is logged in, which is often mounted with other options;
     * the temporary folder, which all users share. Relative paths are ignored, because the user cannot have meant them.
     */
    static List<Path> all() {
        String user = System.getProperty("user.name").replaceAll("[^\\w.-]", "_");
        return Stream.of(
                        place(cache(), FOLDER),
                        place(onMac() ? null : System.getenv("XDG_RUNTIME_DIR"), FOLDER),
                        place(System.getProperty("java.io.tmpdir"), FOLDER + "-" + user))
                .filter(Objects::nonNull).filter(Path::isAbsolute).toList();
    }

    static boolean onMac() {
        return System.getProperty("os.name").toLowerCase(Locale.ROOT).startsWith("mac");
    }

    private static String cache() {
        String home = System.getProperty("user.home");
        if (onMac()) {
            return home + "/Library/Caches";
        }
        String chosen = System.getenv("XDG_CACHE_HOME");
        return chosen != null && chosen.startsWith("/") ? chosen : home + "/.cache";
    }

    private static Path place(String parent, String folder) {
        return parent == null ? null : Path.of(parent, folder);
    }
}
