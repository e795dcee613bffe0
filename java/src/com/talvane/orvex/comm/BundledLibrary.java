package com.talvane.orvex.comm;

import java.io.FileNotFoundException;
import java.io.IOException;
import java.io.InputStream;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.Locale;

/**
 * The copy of the native library in the jar. It is unpacked once for each user and content, into a folder that belongs
 * to the user alone. A file there is never written to and never deleted, only replaced as a whole: other processes may
 * be running it.
 */
final class BundledLibrary {
    private static final String VERSION = "3.47";
    private static final String NAME = "libUSBAccessLink_" + VERSION.replace('.', '_');

    /** Digits of the content's hash in the folder's name: enough that two builds never share a folder by chance. */
    private static final int HASH_DIGITS = 16;

    /** Class loaders of one virtual machine that can use the library at the same time. */
    private static final int MOST_INSTANCES = 16;

    private BundledLibrary() {
    }

    /**
     * Loads the copy from the first folder where that works.
     *
     * @return whether it is loaded; if not, each failure is noted
     */
    static boolean load(LoadAttempts attempts) {
        byte[][] content = new byte[1][];
        if (!attempts.succeeds("the copy in the jar", () -> content[0] = read())) {
            return false;
        }
        String folder = VERSION + "-" + hash(content[0]).substring(0, HASH_DIGITS);
        return UnpackPlaces.all().stream().anyMatch(place -> attempts.succeeds(
                "the copy in the jar, unpacked into '" + place.resolve(folder) + "'",
                () -> load(content[0], PrivateFolder.at(place, folder))));
    }

    private static byte[] read() throws IOException {
        String resource = "META-INF/native/" + platform() + "/" + NAME + ending();
        try (InputStream stream = BundledLibrary.class.getResourceAsStream("/" + resource)) {
            if (stream == null) {
                throw new FileNotFoundException(resource + " is not in the jar");
            }
            return stream.readAllBytes();
        }
    }

    /**
     * Each class loader gets a file of its own, for the virtual machine gives a file to one class loader only. The
     * system takes two files for two libraries, so each has its own session, lists and open devices.
     */
    private static void load(byte[] content, Path folder) throws IOException {
        for (int instance = 1; ; ++instance) {
            Path file = folder.resolve(NAME + (instance == 1 ? "" : "-" + instance) + ending());
            unpack(content, file);
            try {
                System.load(file.toString());
                return;
            } catch (UnsatisfiedLinkError e) {
                if (instance == MOST_INSTANCES || !LoadAttempts.isTaken(e)) {
                    throw e;
                }
            }
        }
    }

    /** Whoever sees the file under its name sees all of it, however many processes unpack at the same time. */
    private static void unpack(byte[] content, Path file) throws IOException {
        if (Files.isRegularFile(file, LinkOption.NOFOLLOW_LINKS)
                && Arrays.equals(Files.readAllBytes(file), content)) {
            return;
        }
        Path fresh = Files.createTempFile(file.getParent(), NAME, ".new");
        try {
            Files.write(fresh, content);
            Files.move(fresh, file, StandardCopyOption.ATOMIC_MOVE);
        } finally {
            Files.deleteIfExists(fresh);
        }
    }

    private static String hash(byte[] content) {
        try {
            return HexFormat.of().formatHex(MessageDigest.getInstance("SHA-256").digest(content));
        } catch (NoSuchAlgorithmException e) {
            throw new IllegalStateException("every Java runtime has SHA-256", e);
        }
    }

    private static String platform() {
        String architecture = System.getProperty("os.arch").toLowerCase(Locale.ROOT);
        return (UnpackPlaces.onMac() ? "macos" : System.getProperty("os.name").toLowerCase(Locale.ROOT)) + "-"
                + switch (architecture) {
                    case "amd64" -> "x86_64";
                    case "arm64" -> "aarch64";
                    default -> architecture;
                };
    }

    private static String ending() {
        return UnpackPlaces.onMac() ? ".dylib" : ".so";
    }
}
