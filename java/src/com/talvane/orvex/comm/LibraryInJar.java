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
 * A native library in the jar. It is unpacked once for each user and content, into a folder that belongs to the user
 * alone. An unpacked file is never modified or deleted, only replaced as a whole, because other processes may be using
 * it.
 */
final class LibraryInJar {
    static final String VERSION = "3.47";

    /** Digits of the content's hash in the folder's name, enough to keep builds apart. */
    private static final int HASH_DIGITS = 16;

    /** The maximum number of class loaders of one virtual machine that can use the library at the same time. */
    private static final int MOST_INSTANCES = 16;

    private final String name;
    private final byte[] content;

    private LibraryInJar(String name, byte[] content) {
        this.name = name;
        this.content = content;
    }

    /** Returns the library with this file name for this platform. */
    static LibraryInJar named(String name) throws IOException {
        String resource = "META-INF/native/" + platform() + "/" + name;
        try (InputStream stream = LibraryInJar.class.getResourceAsStream("/" + resource)) {
            if (stream == null) {
                throw new FileNotFoundException(resource + " is not in the jar");
            }
            return new LibraryInJar(name, stream.readAllBytes());
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

    /** The name of the library's folder within the folder into which it is unpacked. */
    String folder() {
        return VERSION + "-" + hash(content).substring(0, HASH_DIGITS);
    }

    /**
     * Unpacks and loads the library. Each class loader gets its own file, because the virtual machine loads a file for
     * one class loader only. The system treats two files as two libraries, each with its own globals.
     */
    void load(Path place) throws IOException {
        Path folder = PrivateFolder.at(place, folder());
        for (int instance = 1; ; ++instance) {
            Path file = folder.resolve(
                    instance == 1 ? name : name.replaceFirst("\\.(so|dylib)", "-" + instance + "$0"));
            unpack(file);
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

    /**
     * Replaces the file atomically: other processes never see a part of it, even when several unpack at the same time.
     */
    private void unpack(Path file) throws IOException {
        if (Files.isRegularFile(file, LinkOption.NOFOLLOW_LINKS)
                && Arrays.equals(Files.readAllBytes(file), content)) {
            return;
        }
        Path fresh = Files.createTempFile(file.getParent(), name, ".new");
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
}
