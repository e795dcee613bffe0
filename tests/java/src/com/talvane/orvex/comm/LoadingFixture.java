package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.List;
import java.util.stream.Stream;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.io.TempDir;

/** A user who has only the jar, with a home folder and a temporary folder of the test. */
abstract class LoadingFixture {
    static final String FOLDER = "orvex-usb-access";
    static final String LIBRARY = "libUSBAccessLink_3_47";
    private static final boolean MAC = System.getProperty("os.name").startsWith("Mac");

    @TempDir
    Path folder;
    Path home;
    Path temporary;
    /** The folder in which the copy is unpacked first, and the alternatives. */
    Path cache;
    Path lastResort;

    @BeforeEach
    void makeFolders() throws IOException {
        home = Files.createDirectory(folder.resolve("home"));
        temporary = Files.createDirectory(folder.resolve("temporary"));
        cache = home.resolve(MAC ? "Library/Caches" : ".cache").resolve(FOLDER);
        lastResort = temporary.resolve(FOLDER + "-" + System.getProperty("user.name"));
    }

    ChildVm child() {
        return new ChildVm().without(NativeLibrary.PATH_PROPERTY).without("java.library.path")
                .with("-Djava.library.path=/nowhere/at/all").with("-Duser.home=" + home)
                .with("-Djava.io.tmpdir=" + temporary)
                .withoutEnvironment("XDG_CACHE_HOME").withoutEnvironment("XDG_RUNTIME_DIR");
    }

    static void assertLoaded(ChildVm.Outcome child) {
        assertEquals(0, child.status(), child.err());
    }

    static void assertTells(ChildVm.Outcome child, String... texts) {
        assertEquals(1, child.status(), child.out());
        for (String text : texts) {
            assertTrue(child.err().contains(text), () -> "'" + text + "' is missing in: " + child.err());
        }
    }

    /** All files below a folder. */
    static List<Path> files(Path below) throws IOException {
        if (!Files.exists(below)) {
            return List.of();
        }
        try (Stream<Path> paths = Files.walk(below)) {
            return paths.filter(Files::isRegularFile).sorted().toList();
        }
    }

    /** The one file that was unpacked there. */
    static Path unpackedIn(Path place) throws IOException {
        List<Path> files = files(place);
        assertEquals(1, files.size(), files::toString);
        assertTrue(files.get(0).getFileName().toString().startsWith(LIBRARY + "."), files::toString);
        return files.get(0);
    }

    static void allow(Path path, String permissions) throws IOException {
        Files.setPosixFilePermissions(path, PosixFilePermissions.fromString(permissions));
    }
}
